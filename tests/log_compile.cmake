# A Log call whose arguments do not go with its format must not build, and for that reason alone.
set(log_compile ${CMAKE_CXX_COMPILER} -std=c++20 -fsyntax-only -I${CMAKE_CURRENT_LIST_DIR}/..
                ${CMAKE_CURRENT_LIST_DIR}/log_compile.cpp)
add_test(NAME LogCompile.AFittingCallBuilds COMMAND ${log_compile} -DWRONG=0)
foreach(wrong RANGE 1 4)
    add_test(NAME LogCompile.AWrongCallDoesNotBuild/${wrong}
             COMMAND ${log_compile} -DWRONG=${wrong})
    set_tests_properties(LogCompile.AWrongCallDoesNotBuild/${wrong} PROPERTIES
                         PASS_REGULAR_EXPRESSION the_format_does_not_match_its_arguments)
endforeach()
