// The features that clients read and switch.
#pragma once

#include "api/agent_api.h"

// A feature's name in log lines; "" for an unknown feature.
const wchar_t* FeatureName(HOLVAgentFeatureEnum feature);
// A feature's value as log lines show it; "" for an unknown feature.
const wchar_t* FeatureValueWord(HOLVAgentFeatureEnum feature, DWORD value);

// Stores a feature's value in the registry and in the running service, and notifies the state
// machine where the change takes effect at once. The running service takes the value even if the
// registry refuses it. Does nothing for an unknown or read-only feature.
void SetFeature(HOLVAgentFeatureEnum feature, DWORD value);

// 0 for an unknown feature.
DWORD GetFeature(HOLVAgentFeatureEnum feature);
