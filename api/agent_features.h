// The features that clients read and switch.
#pragma once

#include "api/agent_api.h"

// A feature's name in log lines; "" for a number that is no feature.
const wchar_t* FeatureName(HOLVAgentFeatureEnum feature);
// The word for a feature's value in log lines; "" for a number that is no feature.
const wchar_t* FeatureValueWord(HOLVAgentFeatureEnum feature, DWORD value);

// Stores a feature's value, in the registry and for the running service, and tells the state
// machine where the change takes effect now. A value that cannot be written to the registry counts
// all the same. Nothing happens for a number that is no feature or one that is only read.
void SetFeature(HOLVAgentFeatureEnum feature, DWORD value);

// 0 for a number that is no feature.
DWORD GetFeature(HOLVAgentFeatureEnum feature);
