#ifndef DALNIM_SYS_INTERNAL_SRC_REGISTERS_HPP
#define DALNIM_SYS_INTERNAL_SRC_REGISTERS_HPP

#include <dalnim/sys/internal/src/SafeMemory.hpp>

#include <qv/pmx/src/processor.hpp>

#include <cstdint>
#include <ucontext.h>

namespace com::kor::dal::nim::sys::internal {

/** The registers of a thread that a signal has interrupted. On an unknown processor, nothing is known of
 * them. */
class Registers
{
public:
    /** @param context  third argument of the signal handler, or null: nothing is known then */
    explicit Registers(const void* context) noexcept
        : machine(context != nullptr ? &static_cast<const ucontext_t*>(context)->uc_mcontext : nullptr)
    {
    }

    /** Returns the address of the interrupted instruction, or 0. */
    std::uint64_t instruction() const noexcept
    {
#if QV_IS_X86_64
        return machine != nullptr ? number(machine->gregs[REG_RIP]) : 0;
#elif QV_IS_ARM64
        return machine != nullptr ? machine->pc : 0;
#else
        return 0;
#endif
    }

    /** Reads the address to which a function returns that was entered just now. Returns false on failure. */
    bool readReturnAddress(std::uint64_t& address) const noexcept
    {
#if QV_IS_X86_64
        return machine != nullptr && SafeMemory::readValue(address, pointer(machine->gregs[REG_RSP]));
#elif QV_IS_ARM64
        if (machine != nullptr) {
            address = machine->regs[30];
        }
        return machine != nullptr;
#else
        static_cast<void>(address);
        return false;
#endif
    }

    struct SystemCall
    {
        std::uint64_t number;
        std::uint64_t arguments[3];
    };

    /**
     * Returns the system call of the registers. The thread has called it, and the kernel restarts it after
     * the handler, if the next instruction is a system call.
     */
    SystemCall systemCall() const noexcept
    {
#if QV_IS_X86_64
        if (machine != nullptr) {
            const auto& registers = machine->gregs;
            return {number(registers[REG_RAX]),
                    {number(registers[REG_RDI]), number(registers[REG_RSI]), number(registers[REG_RDX])}};
        }
#elif QV_IS_ARM64
        if (machine != nullptr) {
            const auto& registers = machine->regs;
            return {registers[8], {registers[0], registers[1], registers[2]}};
        }
#endif
        return {};
    }

    /** Returns true if the next instruction is a system call. */
    bool isAtSystemCall() const noexcept
    {
#if QV_IS_X86_64
        constexpr unsigned char CALL[] = {0x0f, 0x05};
        unsigned char code[sizeof CALL] = {};
        return machine != nullptr && SafeMemory::readValue(code, pointer(machine->gregs[REG_RIP]))
               && code[0] == CALL[0] && code[1] == CALL[1];
#elif QV_IS_ARM64
        constexpr std::uint32_t CALL = 0xd4000001;
        std::uint32_t code = 0;
        return machine != nullptr && SafeMemory::readValue(code, reinterpret_cast<const void*>(machine->pc))
               && code == CALL;
#else
        return false;
#endif
    }

private:
#if QV_IS_X86_64
    static std::uint64_t number(greg_t value) noexcept
    {
        return static_cast<std::uint64_t>(value);
    }
    static const void* pointer(greg_t value) noexcept
    {
        return reinterpret_cast<const void*>(static_cast<std::uintptr_t>(value));
    }
#endif

    const mcontext_t* const machine;
};

}

#endif
