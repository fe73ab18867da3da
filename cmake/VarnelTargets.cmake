# SPDX-License-Identifier: MIT
# One interface target has the language level, the warnings and the Qt definitions of every target of
# this project, so no CMakeLists.txt repeats them.

add_library(varnel-build INTERFACE)
target_compile_features(varnel-build INTERFACE cxx_std_17)
target_compile_options(varnel-build INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow=local -Wold-style-cast -Woverloaded-virtual -Wnon-virtual-dtor
    -Wformat-security -Wcast-align -Wunused -Wduplicated-cond -Wlogical-op)
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    set_property(TARGET varnel-build PROPERTY INTERFACE_COMPILE_OPTIONS
        -Wall -Wextra -Wpedantic -Wshadow -Wold-style-cast -Woverloaded-virtual -Wnon-virtual-dtor
        -Wformat-security -Wcast-align -Wunused -Wno-gnu-zero-variadic-macro-arguments) # those of qCDebug()
endif()
target_compile_definitions(varnel-build INTERFACE
    QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_URL_CAST_FROM_STRING
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT QT_STRICT_ITERATORS QT_DEPRECATED_WARNINGS
    VARNEL_VERSION="${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}")

if(VARNEL_WARNINGS_AS_ERRORS)
    target_compile_options(varnel-build INTERFACE -Werror)
endif()
if(VARNEL_SANITIZE)
    set(sanitize -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    target_compile_options(varnel-build INTERFACE ${sanitize})
    target_link_options(varnel-build INTERFACE ${sanitize})
endif()
if(VARNEL_FUZZ)
    set(fuzz -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    target_compile_options(varnel-build INTERFACE ${fuzz})
    target_link_options(varnel-build INTERFACE -fsanitize=address,undefined)
endif()
if(VARNEL_FUZZ_COVERAGE)
    target_compile_options(varnel-build INTERFACE -fprofile-instr-generate -fcoverage-mapping)
    target_link_options(varnel-build INTERFACE -fprofile-instr-generate)
endif()

# All tests with the label "unit" and the programs that they run, for builds that need no more.
add_custom_target(unit-tests)
# Those of them that read hostile input.
add_custom_target(hostile-tests)
