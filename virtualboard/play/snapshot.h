#pragma once

#include <QtGlobal>

#include <array>
#include <atomic>
#include <cstring>
#include <type_traits>

namespace virtualboard {

/// The last value that one thread has left for all others. Writing never waits; reading repeats
/// while a value is being written.
template <typename T>
class Snapshot
{
    static_assert(std::is_trivially_copyable_v<T>);

public:
    Snapshot() { write(T()); }

    void write(const T &value)
    {
        std::array<quint64, kWords> copy = {};
        std::memcpy(copy.data(), &value, sizeof value);
        const unsigned turn = m_turn.load(std::memory_order_relaxed);
        m_turn.store(turn + 1, std::memory_order_relaxed); // odd: being written
        // Who sees one of these words, also sees the odd turn. ThreadSanitizer knows no fences.
        for (std::size_t i = 0; i < kWords; ++i)
            m_words[i].store(copy[i], std::memory_order_release);
        m_turn.store(turn + 2, std::memory_order_release);
    }

    T read() const
    {
        std::array<quint64, kWords> copy;
        unsigned before = 0;
        do {
            before = m_turn.load(std::memory_order_acquire);
            for (std::size_t i = 0; i < kWords; ++i)
                copy[i] = m_words[i].load(std::memory_order_acquire);
        } while (before % 2 != 0 || before != m_turn.load(std::memory_order_relaxed));
        T value;
        std::memcpy(static_cast<void *>(&value), copy.data(), sizeof value);
        return value;
    }

private:
    static constexpr std::size_t kWords = (sizeof(T) + 7) / 8;
    std::array<std::atomic<quint64>, kWords> m_words = {};
    std::atomic<unsigned> m_turn = 0;
};

} // namespace virtualboard
