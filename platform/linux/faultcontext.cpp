#include "platform/faults.h"

#include "platform/linux/callingthread.h"

#include <cstring>
#include <iterator>
#include <unistd.h>

// Stores the rest of the context. The assembly below ends with a jump here, so this returns to the caller.
extern "C" __attribute__((visibility("hidden"), used)) void ZqFaultContextRest(plat::FaultContext_t * pContext)
{
    constexpr std::size_t STATE_SIZE = 512;   // bytes of the FXSAVE area (Intel SDM, volume 1, 10.5.1)
    struct alignas(16) FloatState_t           // these bytes
    {
        std::uint16_t nControl, nStatus;
        std::uint8_t dUnused[28];
        std::uint8_t dStack[8][16];
        std::uint8_t dRest[STATE_SIZE - 32 - 128];
    } Floats;
    static_assert(sizeof Floats == STATE_SIZE);
    __asm__ volatile("fxsave %0" : "=m"(Floats));
    pContext->nX87Status = Floats.nStatus;
    for (std::size_t iEntry = 0; iEntry < std::size(Floats.dStack); ++iEntry)
    {
        std::memcpy(pContext->dX87[iEntry], Floats.dStack[iEntry], sizeof pContext->dX87[iEntry]);
    }
    __asm__ volatile("mov %%cs, %0" : "=r"(pContext->nCs));
    __asm__ volatile("mov %%ss, %0" : "=r"(pContext->nSs));
    __asm__ volatile("mov %%ds, %0" : "=r"(pContext->nDs));
    __asm__ volatile("mov %%es, %0" : "=r"(pContext->nEs));
    __asm__ volatile("mov %%fs, %0" : "=r"(pContext->nFs));
    __asm__ volatile("mov %%gs, %0" : "=r"(pContext->nGs));
    pContext->nVectors = 0;   // a call may change them
    pContext->iThread = static_cast<std::uint32_t>(plat::CallingThread());
}

#define FAULT_AT(member) "i"(offsetof(plat::FaultContext_t, member))

// The function is naked, without a frame: the registers are still the caller's, except those that a call may change.
#if defined(__x86_64__)
__attribute__((naked)) void plat::FaultContextCapture(FaultContext_t *)
{
    __asm__ volatile("movq (%%rsp), %%rax\n\t"
                     "movq %%rax, %c0(%%rdi)\n\t"
                     "leaq 8(%%rsp), %%rax\n\t"
                     "movq %%rax, %c1(%%rdi)\n\t"
                     "movq %%rbp, %c2(%%rdi)\n\t"
                     "movq $0, %c3(%%rdi)\n\t"
                     "movq %%rbx, %c4(%%rdi)\n\t"
                     "movq %%rcx, %c5(%%rdi)\n\t"
                     "movq %%rdx, %c6(%%rdi)\n\t"
                     "movq %%rsi, %c7(%%rdi)\n\t"
                     "movq %%rdi, %c8(%%rdi)\n\t"
                     "movq %%r8, %c9(%%rdi)\n\t"
                     "movq %%r9, 8+%c9(%%rdi)\n\t"
                     "movq %%r10, 16+%c9(%%rdi)\n\t"
                     "movq %%r11, 24+%c9(%%rdi)\n\t"
                     "movq %%r12, 32+%c9(%%rdi)\n\t"
                     "movq %%r13, 40+%c9(%%rdi)\n\t"
                     "movq %%r14, 48+%c9(%%rdi)\n\t"
                     "movq %%r15, 56+%c9(%%rdi)\n\t"
                     "pushfq\n\t"
                     "popq %c10(%%rdi)\n\t"
                     "jmp ZqFaultContextRest"
                     :
                     : FAULT_AT(nIp), FAULT_AT(nSp), FAULT_AT(nBp), FAULT_AT(nAx), FAULT_AT(nBx), FAULT_AT(nCx),
                     FAULT_AT(nDx), FAULT_AT(nSi), FAULT_AT(nDi), FAULT_AT(dExtended), FAULT_AT(nFlags));
}
#else
__attribute__((naked)) void plat::FaultContextCapture(FaultContext_t *)
{
    __asm__ volatile("movl 4(%%esp), %%eax\n\t"
                     "movl %%ecx, %c5(%%eax)\n\t"
                     "movl (%%esp), %%ecx\n\t"
                     "movl %%ecx, %c0(%%eax)\n\t"
                     "leal 4(%%esp), %%ecx\n\t"
                     "movl %%ecx, %c1(%%eax)\n\t"
                     "movl %%ebp, %c2(%%eax)\n\t"
                     "movl $0, %c3(%%eax)\n\t"
                     "movl %%ebx, %c4(%%eax)\n\t"
                     "movl %%edx, %c6(%%eax)\n\t"
                     "movl %%esi, %c7(%%eax)\n\t"
                     "movl %%edi, %c8(%%eax)\n\t"
                     "pushfl\n\t"
                     "popl %c9(%%eax)\n\t"
                     "jmp ZqFaultContextRest"
                     :
                     : FAULT_AT(nIp), FAULT_AT(nSp), FAULT_AT(nBp), FAULT_AT(nAx), FAULT_AT(nBx), FAULT_AT(nCx),
                     FAULT_AT(nDx), FAULT_AT(nSi), FAULT_AT(nDi), FAULT_AT(nFlags));
}
#endif
