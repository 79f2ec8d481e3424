// A structured exception is none of C++ for this compiler: `catch (...)` lets it pass, and the
// process ends. The frame of CallWithFaultsThrown has a handler for structured exceptions. Windows
// asks it after the handlers of the frames further in, so that system libraries still deal with
// their own exceptions; a vectored handler would be asked before them. The handler lets the thread
// go on in ThrowFault, as if the faulting instruction had called it.
//
// Left alone are exceptions that cannot be continued, those that only inform, such as a debugger's,
// and the end of the stack, where there is no room to throw.

#include "platform/fault.h"

#include <windows.h>

asm(R"(
    .text
    .p2align 4
    .globl CallWithFaultsThrown
    .seh_proc CallWithFaultsThrown
CallWithFaultsThrown:
    subq $40, %rsp
    .seh_stackalloc 40
    .seh_endprologue
    .seh_handler OnStructuredException, @except
    movq %rcx, %rax
    movq %rdx, %rcx
    call *%rax
    nop
    addq $40, %rsp
    ret
    .seh_endproc

    # Entered with the faulting place in rcx. That is pushed first, where the address to which a
    # function returns is looked for; the stack may be aligned for a call or not.
    .p2align 4
    .globl EnterThrowFault
    .seh_proc EnterThrowFault
EnterThrowFault:
    pushq %rcx
    pushq %rbp
    .seh_pushreg %rbp
    movq %rsp, %rbp
    .seh_setframe %rbp, 0
    .seh_endprologue
    andq $-16, %rsp
    subq $32, %rsp
    call ThrowFault
    ud2
    .seh_endproc
)");

extern "C" {

void EnterThrowFault();

[[noreturn, gnu::used]] void ThrowFault() { throw Fault(); }

[[gnu::used]] EXCEPTION_DISPOSITION OnStructuredException(EXCEPTION_RECORD* record, void*,
                                                          CONTEXT* context, void*)
{
    // An error of the system's, or a status code that a library raises as it is. C++ exceptions
    // have the customer bit.
    const DWORD code = record->ExceptionCode;
    constexpr DWORD kErrorOfTheSystem = 0xC;
    const bool is_error = code >> 28 == kErrorOfTheSystem || code <= 0xFFFF;
    // Not to be continued, or unwound already, or without a stack.
    constexpr DWORD kFinal = 0xF;
    if (!is_error || (record->ExceptionFlags & kFinal) || code == EXCEPTION_STACK_OVERFLOW) {
        return ExceptionContinueSearch;
    }
    // The unwinder looks for the call before the address to which it returns.
    context->Rcx = context->Rip + 1;
    context->Rip = reinterpret_cast<DWORD64>(EnterThrowFault);
    return ExceptionContinueExecution;
}

}  // extern "C"
