// Named mutexes, as far as their names go: a name exists while a process has it open. Waits for
// them are not modelled.

#include <map>
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

// With the machine held. The names of an earlier machine have expired with its handles.
std::map<std::wstring, std::weak_ptr<Mutex>>& Names()
{
    static std::map<std::wstring, std::weak_ptr<Mutex>> names;
    return names;
}

Function fn_create_mutex{"CreateMutexW"};

}  // namespace

extern "C" {

HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES, BOOL, LPCWSTR name)
{
    Call call(fn_create_mutex);
    if (call.Fails()) return nullptr;
    call.thread.last_error = ERROR_SUCCESS;
    if (!name) return call.Open(std::make_shared<Mutex>(L""));
    std::weak_ptr<Mutex>& known = Names()[name];
    std::shared_ptr<Mutex> mutex = known.lock();
    if (mutex) {
        call.thread.last_error = ERROR_ALREADY_EXISTS;
    } else {
        known = mutex = std::make_shared<Mutex>(name);
    }
    return call.Open(std::move(mutex));
}
}
