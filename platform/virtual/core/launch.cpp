#include "platform/virtual/core/launch.h"

namespace virtual_pc {

std::wstring Launch::Variable(std::wstring_view name) const
{
    for (const std::wstring& variable : environment) {
        const std::size_t equals = variable.find(L'=');
        if (variable.substr(0, equals) == name) return variable.substr(equals + 1);
    }
    return {};
}

}  // namespace virtual_pc
