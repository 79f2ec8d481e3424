// Mutexes, as far as their names go: a name exists while a process has it open. Waits for them are
// not modelled.

#include <memory>
#include <string>

#include "platform/kernel.h"
#include "platform/virtual/core/call.h"
#include "platform/virtual/kernel/object_names.h"

using namespace virtual_pc;

namespace {

class Mutex final : public Object
{
public:
    explicit Mutex(std::wstring name) : m_name(std::move(name)) {}
    std::string_view Kind() const override { return "mutex"; }
    std::wstring Name() const override { return m_name; }

private:
    const std::wstring m_name;
};

Function fn_create_mutex{"CreateMutexW"};

}  // namespace

extern "C" {

HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES, BOOL, LPCWSTR name)
{
    Call call(fn_create_mutex);
    if (call.Fails()) return nullptr;
    return CreateOrOpen<Mutex>(
        call, name, [](std::wstring full) { return std::make_shared<Mutex>(std::move(full)); });
}
}
