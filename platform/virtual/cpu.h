// The processor.
#pragma once

#include <string>

namespace virtual_pc {

struct Cpu
{
    // Twelve characters; that of the vendor the service is built for.
    std::string vendor = HOLV_CPU_VENDOR;
};

}  // namespace virtual_pc
