# The virtual PC and everything that runs on it.

find_package(Threads REQUIRED)

# The quicker linker where there is one.
find_program(HOLV_LLD ld.lld)
if(HOLV_LLD)
    add_link_options(-fuse-ld=lld)
endif()

# The standard library, parsed once for a target and not once for each of its files. Every file
# includes what it uses all the same: the build of clang-tidy and that of Windows have no such header.
set(standard_library
    <algorithm> <array> <atomic> <charconv> <chrono> <cstdint> <cstring> <cwchar> <deque>
    <exception> <functional> <list> <map> <memory> <mutex> <optional> <set> <span> <sstream>
    <stdexcept> <string> <string_view> <thread> <utility> <variant> <vector>)

# A shared library, so that the machine and the images it loads see the same one.
file(GLOB_RECURSE VIRTUAL_PC_SOURCES CONFIGURE_DEPENDS platform/virtual/*.cpp)
add_library(virtual_pc SHARED ${VIRTUAL_PC_SOURCES})
target_link_libraries(virtual_pc PUBLIC Threads::Threads ${CMAKE_DL_LIBS})
target_compile_definitions(virtual_pc PUBLIC HOLV_CPU_VENDOR="${HOLV_CPU_VENDOR}")
target_precompile_headers(virtual_pc PRIVATE ${standard_library})
# Every program has the library from its start on, so that its thread's variables need no look-up; each
# call of the platform reads several.
target_compile_options(virtual_pc PRIVATE -ftls-model=initial-exec)
set_target_properties(virtual_pc PROPERTIES UNITY_BUILD ${HOLV_UNITY})

# Symbols must not be unique to the host process, or an image could never be unloaded and loaded afresh;
# clang makes none.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    set(image_options -fno-gnu-unique)
endif()

# The service: compiled once, for the image and for the tests that call into it.
add_library(service_objects OBJECT ${HOLV_SERVICE_SOURCES})
target_compile_options(service_objects PRIVATE ${image_options})
target_compile_definitions(service_objects PRIVATE
    HOLV_BUILD_VERSION="${PROJECT_VERSION}" HOLV_CPU_VENDOR="${HOLV_CPU_VENDOR}")

set_target_properties(service_objects PROPERTIES
    UNITY_BUILD ${HOLV_SERVICE_UNITY} UNITY_BUILD_MODE GROUP)

add_library(HOLVService SHARED $<TARGET_OBJECTS:service_objects>)
target_link_libraries(HOLVService PRIVATE virtual_pc)

# The administrator's program, of its own files and of some of the service's.
add_library(holvctl SHARED ${HOLV_CTL_SOURCES})
target_link_libraries(holvctl PRIVATE virtual_pc)
target_compile_options(holvctl PRIVATE ${image_options})
target_compile_definitions(holvctl PRIVATE HOLV_BUILD_VERSION="${PROJECT_VERSION}")
if(HOLV_SANITIZE)
    # The object that these call is a proxy of the virtual PC's, which has the interface's slots and
    # not its type.
    set_source_files_properties(ctl/agent.cpp ctl/agent_object.cpp PROPERTIES
        COMPILE_OPTIONS -fno-sanitize=vptr)
endif()

find_package(nlohmann_json REQUIRED)
find_package(CLI11 REQUIRED)
find_library(HOLV_EDIT edit REQUIRED)
file(GLOB PC_SOURCES CONFIGURE_DEPENDS pc/*.cpp)
list(FILTER PC_SOURCES EXCLUDE REGEX "pc/main\\.cpp$")
# Everything of holvpc but its command line, so that tests can run scenarios too.
add_library(pc STATIC ${PC_SOURCES})
target_link_libraries(pc PUBLIC virtual_pc nlohmann_json::nlohmann_json PRIVATE ${HOLV_EDIT})
target_compile_definitions(pc PUBLIC HOLV_SOURCE_DIR="${CMAKE_SOURCE_DIR}")
target_precompile_headers(pc PRIVATE ${standard_library} <filesystem>)
set_target_properties(pc PROPERTIES UNITY_BUILD ${HOLV_UNITY})

# Random lives, and what their user was promised.
file(GLOB_RECURSE STORM_SOURCES CONFIGURE_DEPENDS storm/*.cpp)
add_library(storm STATIC ${STORM_SOURCES})
target_link_libraries(storm PUBLIC pc CLI11::CLI11)
target_precompile_headers(storm PRIVATE ${standard_library} <filesystem>)
set_target_properties(storm PROPERTIES UNITY_BUILD ${HOLV_UNITY})

add_executable(holvpc pc/main.cpp)
target_link_libraries(holvpc PRIVATE storm)
target_compile_definitions(holvpc PRIVATE HOLV_BUILD_VERSION="${PROJECT_VERSION}")
add_dependencies(holvpc HOLVService holvctl)

if(HOLV_FUZZ)
    add_subdirectory(fuzz)
    return()
endif()
enable_testing()
add_subdirectory(tests)
add_subdirectory(bench)
