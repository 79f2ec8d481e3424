#include "platform/virtual/processes/string_table.h"

#include <fstream>
#include <sstream>

#include "platform/virtual/base/text.h"

namespace virtual_pc {

std::map<UINT, std::wstring> ReadStringTable(const std::string& file)
{
    std::map<UINT, std::wstring> texts;
    std::ifstream stream(file);
    bool inside = false;
    for (std::string line; std::getline(stream, line);) {
        std::istringstream words(line);
        UINT id = 0;
        const std::size_t from = line.find('"');
        const std::size_t to = line.rfind('"');
        if (line.starts_with("STRINGTABLE")) inside = true;
        if (line.starts_with("END")) inside = false;
        if (inside && words >> id && from < to) {
            texts[id] = FromUtf8(line.substr(from + 1, to - from - 1));
        }
    }
    return texts;
}

}  // namespace virtual_pc
