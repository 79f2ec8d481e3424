// The keeper of the speakers' mute states.
#pragma once

#include "platform/base.h"

// An object of the class stands for the keeper being there; its data are the process's.
class CAudioManager
{
public:
    // Gets the audio system ready, and lets it go.
    static BOOL Initialize();
    static BOOL Uninitialize();

    // Begins and ends to keep the endpoints' mute states.
    static void Start();
    static void Stop();

    // Gives every known endpoint the mute state that the current state of the machine asks for.
    static void ConfigureAudioDeviceMuteStates();
};
