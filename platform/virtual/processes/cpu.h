// The processor.
#pragma once

#include <string>

namespace virtual_pc {

struct Cpu
{
    // Twelve characters; by default the vendor that the service is built for.
    std::string vendor = HOLV_CPU_VENDOR;
};

}  // namespace virtual_pc
