// process.h: registers, memory and modules of the examined process.
//
// Memory arrives page by page over the socket. Process_c keeps each page until ForgetMemory.
#pragma once

#include "platform/linux/symbolprotocol.h"
#include "tools/zqsymbols/modules.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>

namespace zqsymbols
{
    inline constexpr unsigned REGISTERS = 33;   // one more than the highest number of DWARF that is kept: XMM15, 32

    /// A thread's registers by DWARF's numbers. The one after the last general register is the instruction's address. A
    /// vector register has only its low half.
    struct Registers_t
    {
        std::array<std::uint64_t, REGISTERS> dValues{};
        std::uint64_t nKnown = 0;      // a bit by register: whether its value is known
        std::uint32_t dwAssumed = 0;   // a bit by register: whether its value is known if no callee has changed it

        /// Returns whether a register's value is known. Returns false for a number of REGISTERS or more.
        bool IsKnown(unsigned iRegister) const { return iRegister < REGISTERS && (nKnown >> iRegister & 1) != 0; }

        /// Sets a register's value and marks it as known. Requires iRegister below REGISTERS.
        void Set(unsigned iRegister, std::uint64_t nValue)
        {
            dValues[iRegister] = nValue;
            nKnown |= std::uint64_t{ 1 } << iRegister;
        }
    };

    /// The process at the other end of SYMBOL_SOCKET. If that end fails to send memory, zqsymbols ends.
    class Process_c final : public Modules_c
    {
    public:
        /// Receives the registers and reads the list of modules. Returns false if no valid start arrives, as from
        /// another build.
        bool Start();

        /// Returns the number of bytes of an address, 4 or 8.
        std::uint64_t GetWord() const { return m_nWord; }

        /// Return the numbers of the registers with these roles.
        unsigned GetInstruction() const { return m_nWord == 8 ? NUMBERS_64[0] : NUMBERS_32[0]; }
        unsigned GetStackPointer() const { return m_nWord == 8 ? NUMBERS_64[1] : NUMBERS_32[1]; }
        unsigned GetFramePointer() const { return m_nWord == 8 ? NUMBERS_64[2] : NUMBERS_32[2]; }

        /// Returns whether a function must preserve a register (System V ABI, processor supplements): BX, BP, and in 64
        /// bits R12 to R15, in 32 bits SI and DI. Requires iRegister below 32.
        bool IsKept(unsigned iRegister) const
        {
            constexpr unsigned KEPT_64 = 0xF048, KEPT_32 = 0x00E8;
            return ((m_nWord == 8 ? KEPT_64 : KEPT_32) >> iRegister & 1) != 0;
        }

        /// Returns a number cut to the bytes of an address.
        std::uint64_t Cut(std::uint64_t nValue) const { return m_nWord == 8 ? nValue : nValue & 0xFFFFFFFF; }

        /// Return what the other side sent first (SymbolStart_t): registers, the system's number of the thread, the
        /// lock mark, and the number of the records of printers that follow.
        Registers_t const & GetRegisters() const { return m_Registers; }
        std::uint32_t GetThread() const { return m_iThread; }
        std::uint64_t GetLockMark() const { return m_nLockMark; }
        std::uint32_t GetPrinterCount() const { return m_nPrinters; }

        /// Forgets the memory that was read: threads that run on change it.
        void ForgetMemory() { m_dPages.clear(); }

        /// Copies nBytes from an address. Returns false if not all of them are readable.
        bool Read(std::uint64_t nAddress, void * pBuffer, std::size_t nBytes) override;

        /// Returns the unsigned number of nBytes at an address, 0 for no bytes. Returns nothing if nBytes is more than
        /// 8 or the number is not readable.
        std::optional<std::uint64_t> ReadNumber(std::uint64_t nAddress, std::size_t nBytes);

    private:
        using Page_t = std::array<std::uint8_t, plat::SYMBOL_PAGE>;

        /// The DWARF numbers (System V ABI, processor supplements) of IP SP BP AX BX CX DX SI DI R8 to R15.
        static constexpr unsigned NUMBERS_64[] = { 16, 7, 6, 0, 3, 2, 1, 4, 5, 8, 9, 10, 11, 12, 13, 14, 15 };
        static constexpr unsigned NUMBERS_32[] = { 8, 4, 5, 0, 3, 1, 2, 6, 7 };

        void AddMappedModules();
        static std::optional<Page_t> FetchPage(std::uint64_t nPage);
        std::optional<Page_t> const & PageAt(std::uint64_t nPage);

        std::uint64_t m_nWord = 8;
        std::uint32_t m_iThread = 0;
        std::uint32_t m_nPrinters = 0;
        std::uint64_t m_nLockMark = 0;
        Registers_t m_Registers;
        std::unordered_map<std::uint64_t, std::optional<Page_t>> m_dPages;
    };
}
