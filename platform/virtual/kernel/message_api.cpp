// Thread message queues, and message boxes.

#include "platform/message.h"

#include <algorithm>

#include "platform/virtual/console/outputs.h"
#include "platform/virtual/core/call.h"

using namespace virtual_pc;

namespace {

Function fn_get_message{"GetMessageW"};
Function fn_peek_message{"PeekMessageW", Failing::never};
Function fn_message_box{"MessageBoxW"};
Function fn_translate_message{"TranslateMessage", Failing::never};
Function fn_dispatch_message{"DispatchMessageW", Failing::never};
Function fn_post_thread_message{"PostThreadMessageW"};

constexpr std::size_t kMostMessages = 10'000;
constexpr DWORD kErrorInvalidWindow = 1400;
constexpr DWORD kErrorNotEnoughQuota = 1816;

// What a thread looks for in its queue. A null window matches any window, and the range 0 to 0 any
// message. WM_QUIT always matches.
struct Filter
{
    HWND window;
    UINT first, last;

    bool Passes(const MSG& message) const
    {
        if (message.message == WM_QUIT) return true;
        if (window && message.hwnd != window) return false;
        return (first == 0 && last == 0) || (message.message >= first && message.message <= last);
    }
};

// Null is any window; a thread has no other than that of its apartment.
bool IsWindow(const Thread& thread, HWND window)
{
    return !window || (thread.message_server && window == thread.message_server->window());
}

auto Find(Thread& thread, const Filter& filter)
{
    return std::ranges::find_if(thread.messages,
                                [&](const MSG& message) { return filter.Passes(message); });
}

}  // namespace

extern "C" {

BOOL WINAPI GetMessageW(MSG* message, HWND window, UINT first, UINT last)
{
    Call call(fn_get_message);
    if (call.Fails()) return -1;
    Thread& self = call.thread;
    self.has_queue = true;
    if (!IsWindow(self, window)) {
        call.Fail(kErrorInvalidWindow);
        return -1;
    }
    const Filter filter{window, first, last};
    auto found = Find(self, filter);
    while (found == self.messages.end()) {
        self.wait = {};
        self.wait.what = "for a message";
        self.wait.for_message = true;
        call.machine.scheduler.Block(self);
        self.wait.for_message = false;
        found = Find(self, filter);
    }
    *message = *found;
    self.messages.erase(found);
    return message->message == WM_QUIT ? 0 : 1;
}

BOOL WINAPI PeekMessageW(MSG* message, HWND window, UINT first, UINT last, UINT remove)
{
    Call call(fn_peek_message);
    Thread& self = call.thread;
    self.has_queue = true;
    if (!IsWindow(self, window)) return call.Fail(kErrorInvalidWindow);
    const auto found = Find(self, {window, first, last});
    if (found == self.messages.end()) return FALSE;
    *message = *found;
    if (remove & PM_REMOVE) self.messages.erase(found);
    return TRUE;
}

BOOL WINAPI TranslateMessage(const MSG*)
{
    const Call call(fn_translate_message);
    return FALSE;  // there is no keyboard here
}

LRESULT WINAPI DispatchMessageW(const MSG* message)
{
    const Boundary boundary;
    std::shared_ptr<MessageServer> server;
    {
        const Call call(fn_dispatch_message);
        server = call.thread.message_server;
    }
    // A message without a window has no handler.
    if (server && message->hwnd == server->window()) server->Serve();
    return 0;
}

// Returns at once, as if the user had pressed OK.
int WINAPI MessageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type)
{
    Call call(fn_message_box);
    if (call.Fails()) return 0;
    const bool plain = !owner && type == MB_OK;
    call.machine.outputs.MessageBox(caption, text + std::wstring(plain ? L"" : L" (not plain)"));
    return IDOK;
}

BOOL WINAPI PostThreadMessageW(DWORD threadId, UINT number, WPARAM wParam, LPARAM lParam)
{
    Call call(fn_post_thread_message);
    if (call.Fails()) return FALSE;
    Thread* thread = call.machine.scheduler.FindThread(threadId);
    if (!thread || !thread->has_queue) return call.Fail(ERROR_INVALID_THREAD_ID);
    if (thread->messages.size() >= kMostMessages) return call.Fail(kErrorNotEnoughQuota);
    MSG message{};
    message.message = number;
    message.wParam = wParam;
    message.lParam = lParam;
    thread->messages.push_back(message);
    if (thread->wait.for_message) call.machine.scheduler.MakeReady(*thread);
    return TRUE;
}
}
