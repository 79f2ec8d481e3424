# The Windows program: one static executable for 64-bit Windows 7 and later.

enable_language(RC)

set(generated ${CMAKE_BINARY_DIR}/resources)
file(MAKE_DIRECTORY ${generated})
string(REPLACE "." "," HOLV_VERSION_COMMAS ${PROJECT_VERSION})
configure_file(resources/HOLVService.rc.in ${generated}/HOLVService.rc @ONLY)

# The message table, read (-a) and kept (-A) as 8-bit text.
set(messages ${CMAKE_SOURCE_DIR}/resources/HOLVService.mc)
add_custom_command(
    OUTPUT ${generated}/HOLVService_messages.rc
    COMMAND ${CMAKE_COMMAND} -E copy ${messages} HOLVService_messages.mc
    COMMAND ${HOLV_MESSAGE_COMPILER} -a -A -h . -r . HOLVService_messages.mc
    DEPENDS ${messages}
    WORKING_DIRECTORY ${generated}
    VERBATIM)

# The type library of the control interface. It refers to the system's own library, which a stand-in
# of the same identifiers is enough for.
set(descriptions ${CMAKE_SOURCE_DIR}/resources/idl)
set(widl ${HOLV_INTERFACE_COMPILER} --win64 -I ${descriptions} -L ${generated} -t)
add_custom_command(
    OUTPUT ${generated}/stdole2.tlb
    COMMAND ${widl} -o stdole2.tlb ${descriptions}/stdole2.idl
    DEPENDS ${descriptions}/stdole2.idl ${descriptions}/oaidl.idl
    WORKING_DIRECTORY ${generated}
    VERBATIM)
add_custom_command(
    OUTPUT ${generated}/HOLVAgentLib.tlb
    COMMAND ${widl} -o HOLVAgentLib.tlb ${CMAKE_SOURCE_DIR}/api/HOLVAgentLib.idl
    COMMAND perl ${CMAKE_SOURCE_DIR}/tools/library_id.pl HOLVAgentLib.tlb
            ${CMAKE_SOURCE_DIR}/api/HOLVAgentLib.idl
    DEPENDS ${CMAKE_SOURCE_DIR}/api/HOLVAgentLib.idl ${CMAKE_SOURCE_DIR}/tools/library_id.pl
            ${generated}/stdole2.tlb
    WORKING_DIRECTORY ${generated}
    VERBATIM)
set_source_files_properties(${generated}/HOLVService.rc PROPERTIES
    OBJECT_DEPENDS "${generated}/HOLVService_messages.rc;${generated}/HOLVAgentLib.tlb"
    INCLUDE_DIRECTORIES ${generated})

add_compile_definitions(UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0601)
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-ffunction-sections>
                    $<$<COMPILE_LANGUAGE:CXX>:-fdata-sections>)
# The programs hold neither the time of the build nor its folder, so that two builds of one source are the
# same bytes. SOURCE_DATE_EPOCH sets the compile time that the log tells.
add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:-ffile-prefix-map=${CMAKE_BINARY_DIR}=build>"
                    "$<$<COMPILE_LANGUAGE:CXX>:-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.>")
add_link_options(-static -Wl,--gc-sections -Wl,--no-insert-timestamp $<$<CONFIG:Release>:-s>)

# The log swallows faults of the processor, and releases its locks then. The compiler takes its
# built-in functions for such that never throw.
file(GLOB log_sources CONFIGURE_DEPENDS log/*.cpp)
set(swallows_faults -fnon-call-exceptions -fno-builtin)
set_source_files_properties(${log_sources} PROPERTIES COMPILE_OPTIONS "${swallows_faults}")
set(fault_source platform/fault.cpp)

# All of the service but the one file that knows whose processors it accepts.
list(REMOVE_ITEM HOLV_SERVICE_SOURCES ${CMAKE_SOURCE_DIR}/service/platform_check.cpp)
list(APPEND HOLV_SERVICE_SOURCES ${fault_source})
add_library(service_parts OBJECT ${HOLV_SERVICE_SOURCES})
target_compile_definitions(service_parts PRIVATE HOLV_BUILD_VERSION="${PROJECT_VERSION}")
# The identifiers are defined where no other file has included their headers.
set_source_files_properties(audio/core_audio_ids.cpp PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
set_target_properties(service_parts PROPERTIES
    UNITY_BUILD ${HOLV_SERVICE_UNITY} UNITY_BUILD_MODE GROUP)

# A console program: whoever starts it from a command line sees its output, and a service has no
# console to show.
function(add_service target vendor)
    add_executable(${target} service/platform_check.cpp ${generated}/HOLVService.rc
                   ${generated}/HOLVService_messages.rc ${generated}/HOLVAgentLib.tlb)
    target_compile_definitions(${target} PRIVATE
        $<$<COMPILE_LANGUAGE:CXX>:HOLV_CPU_VENDOR="${vendor}">)
    target_link_options(${target} PRIVATE -municode -mconsole
                        -Wl,-Map=${CMAKE_BINARY_DIR}/${target}.map)
    target_link_libraries(${target} PRIVATE service_parts advapi32 cfgmgr32 ole32 oleaut32 powrprof
                          rpcrt4 setupapi shell32 userenv uuid wtsapi32)
endfunction()
set_source_files_properties(${generated}/HOLVService_messages.rc ${generated}/HOLVAgentLib.tlb
    PROPERTIES HEADER_FILE_ONLY ON)

add_service(HOLVService "${HOLV_CPU_VENDOR}")

# The service once more, for the processor of the machine on which it is checked under Wine. In a
# folder of its own, with all that must never travel with the product.
set(HOLV_WINE_CPU_VENDOR "${HOLV_CPU_VENDOR}" CACHE STRING
    "The processor vendor of the machine that checks the service under Wine")
add_service(wine_HOLVService "${HOLV_WINE_CPU_VENDOR}")
set_target_properties(wine_HOLVService PROPERTIES
    OUTPUT_NAME HOLVService RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/wine)

# A stand-in for the power requests, which are part of a library that cannot be replaced: the service's
# program finds them in this one first.
add_library(wine_power_requests SHARED tools/wine/power_requests.cpp tools/wine/power_requests.def)
set_target_properties(wine_power_requests PROPERTIES
    PREFIX "" OUTPUT_NAME power_requests RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/wine)
target_link_libraries(wine_HOLVService PRIVATE wine_power_requests)

# The administrator's program.
add_executable(holvctl ${HOLV_CTL_SOURCES} ${fault_source})
target_compile_definitions(holvctl PRIVATE HOLV_BUILD_VERSION="${PROJECT_VERSION}")
target_link_options(holvctl PRIVATE -municode -mconsole)
target_link_libraries(holvctl PRIVATE advapi32 cfgmgr32 ole32 oleaut32 powrprof rpcrt4 setupapi shell32 uuid)

# A stand-in for Wine's power library.
add_library(wine_powrprof SHARED tools/wine/powrprof.cpp platform/virtual/power/power_plans.cpp
            platform/virtual/base/guid.cpp)
target_link_libraries(wine_powrprof PRIVATE uuid)
set_target_properties(wine_powrprof PROPERTIES
    PREFIX "" OUTPUT_NAME powrprof RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/wine)

# Programs for the Wine check: one signals the running service's events, which it finds by the
# linker's map; one stands for a helper and tells how it was started; one listens on the trace pipe
# and does not read; one lists power requests; one answers a message box.
foreach(program raise_event tell_start deaf_listener powercfg answer_box)
    add_executable(wine_${program} tools/wine/${program}.cpp)
    target_link_options(wine_${program} PRIVATE -municode -mconsole)
    set_target_properties(wine_${program} PROPERTIES
        OUTPUT_NAME ${program} RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/wine)
endforeach()

# A stand-in for the logging library.
add_library(wine_vexlog SHARED tools/wine/vexlog.cpp)
set_target_properties(wine_vexlog PROPERTIES
    PREFIX "" OUTPUT_NAME vexlog_stand_in RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/wine)

# A platform device's driver.
add_library(wine_platform_device SHARED tools/wine/platform_device.cpp)
find_path(HOLV_DRIVER_HEADERS wdm.h PATH_SUFFIXES ddk REQUIRED)
target_include_directories(wine_platform_device SYSTEM PRIVATE ${HOLV_DRIVER_HEADERS})
# The driver headers define two functions that the compiler's own define too.
target_compile_definitions(wine_platform_device PRIVATE
    __INTRINSIC_DEFINED_InterlockedBitTestAndSet __INTRINSIC_DEFINED_InterlockedBitTestAndReset)
target_compile_options(wine_platform_device PRIVATE -fno-exceptions -fno-rtti -fno-stack-protector)
target_link_options(wine_platform_device PRIVATE
    -nostdlib -Wl,--subsystem,native -Wl,-e,DriverEntry)
target_link_libraries(wine_platform_device PRIVATE ntoskrnl)
set_target_properties(wine_platform_device PROPERTIES PREFIX "" SUFFIX ".sys"
    OUTPUT_NAME platform_device RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/wine)

# The service's log alone, amid faults.
add_executable(wine_log_faults tools/wine/log_faults.cpp ${log_sources} ${fault_source}
               settings/settings.cpp)
target_compile_definitions(wine_log_faults PRIVATE HOLV_BUILD_VERSION="${PROJECT_VERSION}")
target_compile_options(wine_log_faults PRIVATE ${swallows_faults})
target_link_options(wine_log_faults PRIVATE -municode -mconsole)
target_link_libraries(wine_log_faults PRIVATE advapi32 ole32 shell32 uuid)
set_target_properties(wine_log_faults PROPERTIES
    OUTPUT_NAME log_faults RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/wine)

# The package: the program, the clients to start from, and what an administrator needs.
install(TARGETS HOLVService holvctl RUNTIME DESTINATION .)
install(DIRECTORY package/ DESTINATION .)
install(DIRECTORY examples DESTINATION .)
