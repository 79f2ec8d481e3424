// Whether the feature is on, for the handlers of what the system announces.
#pragma once

// True, after a line in the log under the handler's name, while the feature is off.
bool IsFeatureOff(const wchar_t* function);
