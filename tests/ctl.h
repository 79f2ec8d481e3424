// Runs holvctl on a PC, as a person does at its command line.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>

#include "pc/commands.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/console/outputs.h"
#include "platform/virtual/core/machine.h"

struct CtlAnswer
{
    int code = -1;
    std::string said;
};

// Starts it; the caller runs the PC.
inline virtual_pc::Process& StartCtl(virtual_pc::Machine& pc, const std::string& arguments)
{
    pc.Install({.host_path = std::filesystem::path(HOLV_IMAGE).replace_filename("libholvctl.so"),
                .path = kCtlPath});
    return *pc.StartInstalled(kCtlPath, L"holvctl.exe " + virtual_pc::FromUtf8(arguments));
}

inline CtlAnswer RunCtl(virtual_pc::Machine& pc, const std::string& arguments)
{
    const std::size_t before = pc.outputs.console().size();
    virtual_pc::Process& process = StartCtl(pc, arguments);
    pc.RunUntilEnd(process);
    return {process.exit_code(), pc.outputs.console().substr(before)};
}
