// Nothing fills the record yet, so there is nothing to report: ReportServiceState does nothing.
#include "service/service_status.h"

std::atomic<SERVICE_STATUS*> g_pServiceStatus = nullptr;
std::atomic<SERVICE_STATUS_HANDLE> g_hServiceStatus = nullptr;

void ReportServiceState(DWORD) {}
