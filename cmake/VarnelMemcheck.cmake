# SPDX-License-Identifier: MIT
# With VARNEL_VALGRIND the tests of the parts run under valgrind's memcheck. VARNEL_MEMCHECK is the prefix of a test's
# program, VARNEL_MEMCHECK_ALL that of one that starts programs of ours, which are then checked as well, and
# varnel_memchecked() tells ctest. Without VARNEL_VALGRIND all three are empty.

set(VARNEL_MEMCHECK)
set(VARNEL_MEMCHECK_ALL)
if(VARNEL_VALGRIND)
    # Regular expressions that Qt has compiled read beyond the end, a block at a time, and have no name for a suppression. The
    # engine, when it compiles scripts, clears the stack below the stack pointer. So both interpret instead.
    set(VARNEL_MEMCHECK env JSC_useJIT=0 JSC_useRegExpJIT=0 QT_ENABLE_REGEXP_JIT=0
        valgrind --quiet --error-exitcode=99 --leak-check=full --show-leak-kinds=definite
        --errors-for-leak-kinds=definite --child-silent-after-fork=yes --num-callers=30
        --suppressions=${PROJECT_SOURCE_DIR}/tests/valgrind.supp)
    # Scripts and the programs of the system are not checked. A program ends at its first error, so that even a test
    # that would have killed it fails.
    set(VARNEL_MEMCHECK_ALL ${VARNEL_MEMCHECK} --exit-on-first-error=yes
        --trace-children=yes --trace-children-skip=/usr/*,/bin/*,/sbin/*,*.sh)
endif()

# Some tests are thirty times slower there, some that start many programs sixty times. The preset selects tests by the
# label.
function(varnel_memchecked name)
    if(VARNEL_VALGRIND)
        set_tests_properties(${name} PROPERTIES TIMEOUT 1800)
        set_property(TEST ${name} APPEND PROPERTY LABELS valgrind)
        set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT "QTEST_FUNCTION_TIMEOUT=1800000")
    endif()
endfunction()
