# SPDX-License-Identifier: MIT
# How a QtTest program becomes a test. Needs CTest and VarnelMemcheck.cmake.

find_package(Qt5 5.15 REQUIRED COMPONENTS Test)
set(VARNEL_SUPPRESSED_LEAKS
    "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/leaks.supp:print_suppressions=0")

# varnel_add_test(SOURCE LABEL label [SANDBOX] [WATCH_CHILDREN] [TIMEOUT seconds] [LAUNCHER word...]
#                 [LIBRARIES library...] [DEFINITIONS definition...] [PROGRAMS target...])
# builds SOURCE into a program of its name and adds a test of that name that runs it. With SANDBOX the test runs in a
# sandbox of its own, behind LAUNCHER if there is one. PROGRAMS are what it starts; with WATCH_CHILDREN they run under
# memcheck, too. A test with the label "system" runs in the sandbox's own environment and never under memcheck.
function(varnel_add_test source)
    cmake_parse_arguments(PARSE_ARGV 1 arg "SANDBOX;WATCH_CHILDREN" "LABEL;TIMEOUT"
        "LAUNCHER;LIBRARIES;DEFINITIONS;PROGRAMS")
    get_filename_component(name ${source} NAME_WE)
    add_executable(${name} ${source})
    target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} varnel-test-support)
    target_compile_definitions(${name} PRIVATE ${arg_DEFINITIONS})
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    if(arg_PROGRAMS)
        add_dependencies(${name} ${arg_PROGRAMS})
    endif()
    set(environment QT_QPA_PLATFORM=offscreen QT_FORCE_STDERR_LOGGING=1 TZ=UTC LC_ALL=C.UTF-8)
    set(command $<TARGET_FILE:${name}>)
    if(arg_LABEL STREQUAL system)
        set(environment)
    elseif(arg_WATCH_CHILDREN)
        list(PREPEND command ${VARNEL_MEMCHECK_ALL})
    else()
        list(PREPEND command ${VARNEL_MEMCHECK})
    endif()
    list(PREPEND command ${arg_LAUNCHER})
    if(arg_SANDBOX)
        list(PREPEND command ${PROJECT_SOURCE_DIR}/tests/in-sandbox ${CMAKE_SOURCE_DIR} ${CMAKE_BINARY_DIR}
            env ${environment})
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 120)
    endif()
    add_test(NAME ${name} COMMAND ${command})
    set_tests_properties(${name} PROPERTIES LABELS ${arg_LABEL} TIMEOUT ${arg_TIMEOUT}
        ENVIRONMENT "${environment};${VARNEL_SUPPRESSED_LEAKS}")
    if(NOT arg_LABEL STREQUAL system)
        add_dependencies(unit-tests ${name})
        varnel_memchecked(${name})
    endif()
endfunction()
