# The rooms of the house as they include one another; and that what is wrong is found and named, in
# a small house where all of it is.
set(check_rooms perl ${CMAKE_SOURCE_DIR}/tools/check_rooms.pl)
add_test(NAME Rooms.NoneIncludesOneAboveIt COMMAND ${check_rooms} ${CMAKE_SOURCE_DIR})
add_test(NAME Rooms.EachCallToWindowsIsInTheTable
         COMMAND perl ${CMAKE_SOURCE_DIR}/tools/check_calls.pl)

set(house ${CMAKE_CURRENT_BINARY_DIR}/house)
file(WRITE ${house}/audio/a.h "#include \"power/p.h\"\n")
file(WRITE ${house}/power/p.cpp "#include \"power/p.h\"\n#include \"log/l.h\"\n")
file(WRITE ${house}/log/l.h "\n# include \"audio/a.h\"\n#include \"settings/settings.h\"\n")
file(WRITE ${house}/settings/store.cpp "#include \"log/l.h\"\n")
file(WRITE ${house}/state/s.cpp "#include \"platform/virtual/machine.h\"\n#ifdef _WIN32\n#endif\n")
file(WRITE ${house}/platform/virtual/v.cpp "#include \"state/s.h\"\n")
set(found
    "state/s.cpp:1 includes platform/virtual/machine.h: the service knows no platform/virtual"
    "state/s.cpp:2 asks what it is built for"
    "platform/virtual/v.cpp:1 includes state/s.h: platform/virtual knows no state"
    "a circle:\n *audio includes power at audio/a.h:1\n *power includes log at power/p.cpp:2\n *log includes audio at log/l.h:2")
foreach(fault RANGE 3)
    list(GET found ${fault} text)
    add_test(NAME Rooms.WhatIsWrongIsNamed/${fault} COMMAND ${check_rooms} ${house})
    set_tests_properties(Rooms.WhatIsWrongIsNamed/${fault} PROPERTIES PASS_REGULAR_EXPRESSION
                         ${text})
endforeach()
