// For the handlers of what the system announces: whether the feature is on.
#pragma once

// True while the feature is off; then also logs a line under the handler's name.
bool IsFeatureOff(const wchar_t* function);
