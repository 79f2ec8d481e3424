// Named mutexes, as far as their names go: a global name exists while a process has it open. Waits
// for them are not modelled.

#include <memory>
#include <string>

#include "platform/kernel.h"
#include "platform/virtual/core/call.h"

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
    std::shared_ptr<Mutex> mutex;
    if (name) mutex = call.machine.handles.FindNamed<Mutex>(name);
    call.thread.last_error = mutex ? ERROR_ALREADY_EXISTS : NO_ERROR;
    if (!mutex) mutex = std::make_shared<Mutex>(name ? name : L"");
    return call.Open(std::move(mutex));
}
}
