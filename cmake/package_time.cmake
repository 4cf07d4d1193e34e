# Run by CPack before anything else. The packages' files are as old as the newest entry of the
# changelog, so that the same sources give the same bytes whenever they are packed.
file(STRINGS ${CPACK_MARLO_CHANGELOG} newest LIMIT_COUNT 1)
string(REPLACE "\\;" ";" newest "${newest}")
set(packed "${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")
string(FIND "${newest}" "${CPACK_PACKAGE_NAME} (${packed}) " position)
if(NOT position EQUAL 0)
    message(FATAL_ERROR "version ${packed} is to be packed, but ${CPACK_MARLO_CHANGELOG} begins "
        "with: ${newest}\nWrite an entry for ${packed}, or correct the version in CMakeLists.txt.")
endif()
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(COMMAND dpkg-parsechangelog -l ${CPACK_MARLO_CHANGELOG} -S Timestamp
        OUTPUT_VARIABLE timestamp OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    set(ENV{SOURCE_DATE_EPOCH} ${timestamp})
endif()
