# What is installed, by `cmake --install` and in the packages: the component daemon everywhere, the
# component tools where what is built runs.
set(MARLO_UNIT_DIR lib/systemd/system CACHE STRING "Where systemd looks for services")
set(MARLO_SYSUSERS_DIR lib/sysusers.d CACHE STRING "Where systemd looks for users to make")
set(MARLO_TMPFILES_DIR lib/tmpfiles.d CACHE STRING "Where systemd looks for directories to make")
set(MARLO_UDEV_DIR lib/udev/rules.d CACHE STRING "Where udev looks for rules")
# Wireshark's own prefix is /usr, and libraries there have a folder for each architecture.
set(MARLO_DISSECTOR_DIR lib/${CMAKE_LIBRARY_ARCHITECTURE}/wireshark/plugins/marlo
    CACHE STRING "Where Wireshark looks for dissectors")
set(MARLO_COMPLETION_DIR ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    CACHE STRING "Where bash looks for completions")

# Installing builds nothing by itself: not the tests either.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
add_custom_target(installed_files)

# compressed(TARGET SOURCE RESULT): without a name and a time in it, the same bytes each time.
find_program(GZIP_PROGRAM gzip REQUIRED)
function(compressed target source result)
    cmake_path(GET result PARENT_PATH directory)
    file(MAKE_DIRECTORY ${directory})
    add_custom_command(OUTPUT ${result}
        COMMAND ${GZIP_PROGRAM} -9nc ${source} > ${result}
        DEPENDS ${source} VERBATIM)
    add_custom_target(${target} ALL DEPENDS ${result})
    add_dependencies(installed_files ${target})
endfunction()

# install_page(COMPONENT NAME SECTION): a page of the manual.
function(install_page component name section)
    set(page ${CMAKE_BINARY_DIR}/tools/man/${name}.${section}.gz)
    compressed(${name}_page ${CMAKE_SOURCE_DIR}/tools/man/${name}.${section} ${page})
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endfunction()

# install_program(COMPONENT TARGET DIRECTORY)
function(install_program component target directory)
    add_dependencies(installed_files ${target})
    install(TARGETS ${target} RUNTIME DESTINATION ${directory} COMPONENT ${component})
endfunction()

# install_documents(COMPONENT): whose it is, and what a Debian package has besides.
function(install_documents component)
    set(package marlo-${component})
    set(sources ${CMAKE_SOURCE_DIR}/tools/debian)
    set(directory ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package})
    install(FILES ${sources}/${package}/copyright DESTINATION ${directory}
        COMPONENT ${component})
    install(FILES ${compressed_changelog} DESTINATION ${directory}
        COMPONENT ${component} EXCLUDE_FROM_ALL)
    install(FILES ${sources}/${package}/lintian-overrides
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides
        COMPONENT ${component} RENAME ${package} EXCLUDE_FROM_ALL)
endfunction()

set(compressed_changelog ${CMAKE_BINARY_DIR}/tools/debian/changelog.Debian.gz)
compressed(changelog ${CMAKE_SOURCE_DIR}/tools/debian/changelog ${compressed_changelog})
# Symbols are for those who build.
install(CODE "set(CMAKE_INSTALL_DO_STRIP ON)" ALL_COMPONENTS)

set(service_files ${CMAKE_SOURCE_DIR}/platform/linux/marlo_daemon)
install_program(daemon marlo_daemon ${CMAKE_INSTALL_SBINDIR})
install_page(daemon marlo_daemon 8)
install(FILES ${service_files}.sysusers.conf DESTINATION ${MARLO_SYSUSERS_DIR}
    COMPONENT daemon RENAME marlo_daemon.conf)
install(FILES ${service_files}.tmpfiles.conf DESTINATION ${MARLO_TMPFILES_DIR}
    COMPONENT daemon RENAME marlo_daemon.conf)
install(FILES ${service_files}.rules DESTINATION ${MARLO_UDEV_DIR}
    COMPONENT daemon RENAME 60-marlo_daemon.rules)
install(FILES ${service_files}.service DESTINATION ${MARLO_UNIT_DIR} COMPONENT daemon)
# The prefix is known for good when it is installed.
cmake_path(APPEND CMAKE_INSTALL_SBINDIR marlo_daemon OUTPUT_VARIABLE installed_daemon)
install(CODE "
    set(program \"${installed_daemon}\")
    cmake_path(ABSOLUTE_PATH program BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
    set(unit \"${MARLO_UNIT_DIR}/marlo_daemon.service\")
    cmake_path(ABSOLUTE_PATH unit BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
    file(READ \"\$ENV{DESTDIR}\${unit}\" text)
    string(REGEX REPLACE \"ExecStart=[^\n]*\" \"ExecStart=\${program}\" text \"\${text}\")
    file(WRITE \"\$ENV{DESTDIR}\${unit}\" \"\${text}\")
" COMPONENT daemon)

install_documents(daemon)
if(CMAKE_CROSSCOMPILING)
    return()
endif()

install_documents(tools)
foreach(program marlo-sim marlo-fw)
    install_program(tools ${program} ${CMAKE_INSTALL_BINDIR})
    install_page(tools ${program} 1)
    install(FILES ${CMAKE_SOURCE_DIR}/tools/completion/marlo.bash
        DESTINATION ${MARLO_COMPLETION_DIR} COMPONENT tools RENAME ${program})
endforeach()
install(FILES ${CMAKE_SOURCE_DIR}/tools/marlo_fw/output.schema.json
    DESTINATION ${CMAKE_INSTALL_DATADIR}/marlo COMPONENT tools RENAME marlo-fw.schema.json)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/tools/wireshark/ DESTINATION ${MARLO_DISSECTOR_DIR}
    COMPONENT tools FILES_MATCHING PATTERN "*.lua")
