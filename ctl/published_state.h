// The published state as holvctl reads it.
#pragma once

#include <optional>

#include "json/json_value.h"

enum class Published
{
    running,
    stopped,        // the service has ended, and said so
    killed,         // its process is gone, and has not said so
    nothing,        // it runs, but has published nothing
    not_running,    // it has not run since the PC was started
    not_installed,  // nor is it there
};

struct PublishedState
{
    Published service = Published::nothing;
    JsonValue record;  // null where nothing is published
};

PublishedState ReadPublishedState();

// "running", "killed" and so on, for programs.
const wchar_t* PublishedName(Published service);
