# The compiler flags that every target of this project is built with.
add_compile_options(
    -Wall -Wextra -Wpedantic -Wconversion -Werror
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
    $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>
    -fstack-protector-strong
    # File names in assertions and debug records carry no path of the building machine.
    -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)

# Files may be larger than what 32-bit systems count in by default.
add_compile_definitions(_FILE_OFFSET_BITS=64)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # GCC bug 105651: a literal followed by + and a std::string is reported as an overlapping copy.
    add_compile_options(-Wno-restrict)
endif()

if(MARLO_SANITIZE)
    add_compile_options(-fsanitize=${MARLO_SANITIZE} -fno-sanitize-recover=all
                        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${MARLO_SANITIZE})
    if(MARLO_SANITIZE MATCHES unsigned-integer-overflow)
        add_compile_options(-fsanitize-ignorelist=${CMAKE_SOURCE_DIR}/cmake/may_wrap.txt)
    endif()
elseif(CMAKE_BUILD_TYPE STREQUAL "Release")
    # -O3 makes the daemon an eighth larger for 3 % fewer instructions per fragment, which spends its
    # time in system calls.
    set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
    # Tests hold the programs to what follows from these: tests/hardening.sh.
    add_compile_options(-D_FORTIFY_SOURCE=2 -fPIE -ffunction-sections -fdata-sections)
    add_link_options(-pie LINKER:--gc-sections,-z,relro,-z,now,-z,noexecstack,-z,text)
endif()

# The daemon's rooms are optimised as one. Their objects hold ordinary code beside what that takes
# (fat), for whatever else is linked with them: it builds faster so.
set(MARLO_WHOLE_PROGRAM "")
set(MARLO_ORDINARY_CODE "")
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_BUILD_TYPE STREQUAL "Release")
    set(MARLO_WHOLE_PROGRAM -flto=auto -ffat-lto-objects)
    set(MARLO_ORDINARY_CODE -fno-lto)
endif()

# For what runs a few times per boot or session. What runs for every packet is built for speed.
set(MARLO_FOR_SIZE $<$<CONFIG:Release>:-Os>)

if(MARLO_COVERAGE)
    # Optimisation would merge branches; the counters are those of several threads.
    add_compile_options(--coverage -fprofile-update=atomic -O0)
    add_link_options(--coverage)
endif()

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
