// Thread message queues, and message boxes.

#include "platform/message.h"

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

}  // namespace

extern "C" {

BOOL WINAPI GetMessageW(MSG* message, HWND, UINT, UINT)
{
    Call call(fn_get_message);
    if (call.Fails()) return -1;
    Thread& self = call.thread;
    self.has_queue = true;
    while (self.messages.empty()) {
        self.wait = {};
        self.wait.what = "for a message";
        self.wait.for_message = true;
        call.machine.scheduler.Block(self);
        self.wait.for_message = false;
    }
    *message = self.messages.front();
    self.messages.pop_front();
    return message->message == WM_QUIT ? 0 : 1;
}

BOOL WINAPI PeekMessageW(MSG* message, HWND, UINT, UINT, UINT)
{
    const Call call(fn_peek_message);
    call.thread.has_queue = true;
    if (call.thread.messages.empty()) return FALSE;
    *message = call.thread.messages.front();
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
int WINAPI MessageBoxW(HWND, LPCWSTR text, LPCWSTR caption, UINT)
{
    Call call(fn_message_box);
    if (call.Fails()) return 0;
    call.machine.outputs.MessageBox(caption, text);
    return IDOK;
}

BOOL WINAPI PostThreadMessageW(DWORD threadId, UINT number, WPARAM wParam, LPARAM lParam)
{
    Call call(fn_post_thread_message);
    if (call.Fails()) return FALSE;
    Thread* thread = call.machine.scheduler.FindThread(threadId);
    if (!thread || !thread->has_queue) return call.Fail(ERROR_INVALID_THREAD_ID);
    MSG message{};
    message.message = number;
    message.wParam = wParam;
    message.lParam = lParam;
    thread->messages.push_back(message);
    if (thread->wait.for_message) call.machine.scheduler.MakeReady(*thread);
    return TRUE;
}
}
