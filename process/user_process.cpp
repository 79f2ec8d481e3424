// Nothing is done yet: no program is started.
#include "process/user_process.h"

CUserProcess::~CUserProcess() = default;
