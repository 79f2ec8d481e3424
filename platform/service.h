// The service control manager, and notifications of power settings to services.
#pragma once

#include "platform/base.h"

#ifndef _WIN32

struct SERVICE_STATUS
{
    DWORD dwServiceType;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;
};
using LPSERVICE_STATUS = SERVICE_STATUS*;

struct SERVICE_STATUS_HANDLE__;
using SERVICE_STATUS_HANDLE = SERVICE_STATUS_HANDLE__*;
struct SC_HANDLE__;
using SC_HANDLE = SC_HANDLE__*;
using HPOWERNOTIFY = PVOID;

using LPSERVICE_MAIN_FUNCTIONW = void(WINAPI*)(DWORD argc, LPWSTR* argv);
using LPHANDLER_FUNCTION_EX = DWORD(WINAPI*)(DWORD control, DWORD eventType, LPVOID eventData,
                                             LPVOID context);

struct SERVICE_TABLE_ENTRYW
{
    LPWSTR lpServiceName;
    LPSERVICE_MAIN_FUNCTIONW lpServiceProc;
};

struct SERVICE_DESCRIPTIONW
{
    LPWSTR lpDescription;
};

// The data of PBT_POWERSETTINGCHANGE: the setting, and the bytes of its new value.
struct POWERBROADCAST_SETTING
{
    GUID PowerSetting;
    DWORD DataLength;
    BYTE Data[1];
};
static_assert(offsetof(POWERBROADCAST_SETTING, Data) == 20);

// --- States ---
#define SERVICE_STOPPED 0x00000001u
#define SERVICE_START_PENDING 0x00000002u
#define SERVICE_STOP_PENDING 0x00000003u
#define SERVICE_RUNNING 0x00000004u

// --- Configuration ---
#define SERVICE_WIN32_OWN_PROCESS 0x00000010u
#define SERVICE_AUTO_START 0x00000002u
#define SERVICE_DEMAND_START 0x00000003u
#define SERVICE_ERROR_NORMAL 0x00000001u
#define SERVICE_CONFIG_DESCRIPTION 1u

// --- Access ---
#define DELETE 0x00010000u
#define SC_MANAGER_CONNECT 0x0001u
#define SC_MANAGER_CREATE_SERVICE 0x0002u
#define SC_MANAGER_ALL_ACCESS 0x000F003Fu
#define SERVICE_QUERY_CONFIG 0x0001u
#define SERVICE_CHANGE_CONFIG 0x0002u
#define SERVICE_INTERROGATE 0x0080u
#define SERVICE_STOP 0x0020u
#define SERVICE_ALL_ACCESS 0x000F01FFu

// --- Controls that a service accepts ---
#define SERVICE_ACCEPT_STOP 0x00000001u
#define SERVICE_ACCEPT_PAUSE_CONTINUE 0x00000002u
#define SERVICE_ACCEPT_SHUTDOWN 0x00000004u
#define SERVICE_ACCEPT_PARAMCHANGE 0x00000008u
#define SERVICE_ACCEPT_NETBINDCHANGE 0x00000010u
#define SERVICE_ACCEPT_HARDWAREPROFILECHANGE 0x00000020u
#define SERVICE_ACCEPT_POWEREVENT 0x00000040u
#define SERVICE_ACCEPT_SESSIONCHANGE 0x00000080u
#define SERVICE_ACCEPT_PRESHUTDOWN 0x00000100u
#define SERVICE_ACCEPT_TIMECHANGE 0x00000200u

// --- Controls, as a service's control handler gets them ---
#define SERVICE_CONTROL_STOP 0x00000001u
#define SERVICE_CONTROL_PAUSE 0x00000002u
#define SERVICE_CONTROL_CONTINUE 0x00000003u
#define SERVICE_CONTROL_INTERROGATE 0x00000004u
#define SERVICE_CONTROL_SHUTDOWN 0x00000005u
#define SERVICE_CONTROL_PARAMCHANGE 0x00000006u
#define SERVICE_CONTROL_NETBINDADD 0x00000007u
#define SERVICE_CONTROL_NETBINDDISABLE 0x0000000Au
#define SERVICE_CONTROL_HARDWAREPROFILECHANGE 0x0000000Cu
#define SERVICE_CONTROL_POWEREVENT 0x0000000Du
#define SERVICE_CONTROL_SESSIONCHANGE 0x0000000Eu
#define SERVICE_CONTROL_PRESHUTDOWN 0x0000000Fu
#define SERVICE_CONTROL_TIMECHANGE 0x00000010u

// --- Events of SERVICE_CONTROL_POWEREVENT ---
#define PBT_APMQUERYSUSPEND 0x0000
#define PBT_APMQUERYSTANDBY 0x0001
#define PBT_APMQUERYSUSPENDFAILED 0x0002
#define PBT_APMQUERYSTANDBYFAILED 0x0003
#define PBT_APMSUSPEND 0x0004
#define PBT_APMSTANDBY 0x0005
#define PBT_APMRESUMECRITICAL 0x0006
#define PBT_APMRESUMESUSPEND 0x0007
#define PBT_APMRESUMESTANDBY 0x0008
#define PBT_APMBATTERYLOW 0x0009
#define PBT_APMPOWERSTATUSCHANGE 0x000A
#define PBT_APMOEMEVENT 0x000B
#define PBT_APMRESUMEAUTOMATIC 0x0012
#define PBT_POWERSETTINGCHANGE 0x8013

#define DEVICE_NOTIFY_SERVICE_HANDLE 0x00000001u

// --- Errors ---
#define ERROR_DEPENDENT_SERVICES_RUNNING 1051
#define ERROR_INVALID_SERVICE_CONTROL 1052
#define ERROR_SERVICE_REQUEST_TIMEOUT 1053
#define ERROR_SERVICE_ALREADY_RUNNING 1056
#define ERROR_CIRCULAR_DEPENDENCY 1059
#define ERROR_SERVICE_DOES_NOT_EXIST 1060
#define ERROR_SERVICE_CANNOT_ACCEPT_CTRL 1061
#define ERROR_SERVICE_NOT_ACTIVE 1062
#define ERROR_FAILED_SERVICE_CONTROLLER_CONNECT 1063
#define ERROR_PROCESS_ABORTED 1067
#define ERROR_SERVICE_DEPENDENCY_FAIL 1068
#define ERROR_SERVICE_MARKED_FOR_DELETE 1072
#define ERROR_SERVICE_EXISTS 1073
#define ERROR_SERVICE_DEPENDENCY_DELETED 1075
#define ERROR_DUPLICATE_SERVICE_NAME 1078
#define ERROR_SERVICE_NOT_IN_EXE 1083

extern "C" {

// --- For a program that manages services ---
// The caller closes handles with CloseServiceHandle. All return null or FALSE, with the last error
// set, on failure.

SC_HANDLE WINAPI OpenSCManagerW(LPCWSTR machine, LPCWSTR database, DWORD access);
// Opens a service. ERROR_SERVICE_DOES_NOT_EXIST when there is none of that name.
SC_HANDLE WINAPI OpenServiceW(SC_HANDLE manager, LPCWSTR name, DWORD access);

// Adds a service to the manager's database. `dependencies` is a list of names, each terminated,
// with another terminator after the last; a null `account` is LocalSystem. ERROR_SERVICE_EXISTS or
// ERROR_SERVICE_MARKED_FOR_DELETE when there is a service of that name.
SC_HANDLE WINAPI CreateServiceW(SC_HANDLE manager, LPCWSTR name, LPCWSTR displayName, DWORD access,
                                DWORD type, DWORD start, DWORD errorControl, LPCWSTR path,
                                LPCWSTR loadOrderGroup, LPDWORD tag, LPCWSTR dependencies,
                                LPCWSTR account, LPCWSTR password);

// Changes the description: SERVICE_CONFIG_DESCRIPTION with a SERVICE_DESCRIPTIONW.
BOOL WINAPI ChangeServiceConfig2W(SC_HANDLE service, DWORD level, LPVOID info);

// Marks a service for deletion. It is deleted when it has stopped and its last handle is closed.
BOOL WINAPI DeleteService(SC_HANDLE service);

// Sends a control and waits for the service's handler to return. `status` receives the service's
// last report, also when the control is refused because of the service's state:
// ERROR_SERVICE_NOT_ACTIVE, ERROR_SERVICE_CANNOT_ACCEPT_CTRL, ERROR_INVALID_SERVICE_CONTROL.
BOOL WINAPI ControlService(SC_HANDLE service, DWORD control, LPSERVICE_STATUS status);

BOOL WINAPI CloseServiceHandle(SC_HANDLE handle);

// --- For a service ---

// Runs the control handlers of the process's services on the calling thread, and returns when all
// services have stopped. Each service's main routine runs on a thread of its own.
// ERROR_FAILED_SERVICE_CONTROLLER_CONNECT when the process was not started as a service. The table
// ends with a row of nulls.
BOOL WINAPI StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table);

// Registers the control handler. Null with the last error set on failure. The caller does not close
// the handle.
SERVICE_STATUS_HANDLE WINAPI RegisterServiceCtrlHandlerExW(LPCWSTR name,
                                                           LPHANDLER_FUNCTION_EX handler,
                                                           LPVOID context);

// Reports the service's state to the manager. Any thread.
BOOL WINAPI SetServiceStatus(SERVICE_STATUS_HANDLE handle, LPSERVICE_STATUS status);

// Registers for notifications of a power setting: the control handler of `recipient` (a
// SERVICE_STATUS_HANDLE) receives its present value and then every change. Null with the last error
// set on failure.
HPOWERNOTIFY WINAPI RegisterPowerSettingNotification(HANDLE recipient, const GUID* setting,
                                                     DWORD flags);
BOOL WINAPI UnregisterPowerSettingNotification(HPOWERNOTIFY registration);
}

#endif
