// Nothing is done yet: no endpoint is known, and none is muted.
#include "audio/audio_manager.h"

BOOL CAudioManager::Initialize() { return TRUE; }
BOOL CAudioManager::Uninitialize() { return TRUE; }
void CAudioManager::Start() {}
void CAudioManager::Stop() {}
void CAudioManager::ConfigureAudioDeviceMuteStates() {}
