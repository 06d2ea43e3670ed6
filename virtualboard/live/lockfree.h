/// \file
/// What one thread hands to another without either of them ever waiting.
#pragma once

#include <QtGlobal>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <type_traits>
#include <vector>

namespace virtualboard {

/// A queue from one thread to one other. Everything is allocated by the constructor.
template <typename T>
class SpscQueue
{
    static_assert(std::is_trivially_copyable_v<T>);

public:
    explicit SpscQueue(std::size_t capacity)
        : m_items(capacity + 1)
    { }

    /// The writer's: false, and nothing changes, when the queue is full.
    [[nodiscard]] bool push(const T &item)
    {
        const std::size_t at = m_end.load(std::memory_order_relaxed);
        const std::size_t next = at + 1 == m_items.size() ? 0 : at + 1;
        if (next == m_begin.load(std::memory_order_acquire))
            return false;
        m_items[at] = item;
        m_end.store(next, std::memory_order_release);
        return true;
    }
    /// The reader's: the oldest item, or null. It stays in the queue until pop().
    const T *front() const
    {
        const std::size_t at = m_begin.load(std::memory_order_relaxed);
        return at == m_end.load(std::memory_order_acquire) ? nullptr : &m_items[at];
    }
    /// The reader's, after front() was not null.
    void pop()
    {
        const std::size_t at = m_begin.load(std::memory_order_relaxed);
        m_begin.store(at + 1 == m_items.size() ? 0 : at + 1, std::memory_order_release);
    }

private:
    std::vector<T> m_items; ///< one place stays free, to tell full from empty
    alignas(64) std::atomic<std::size_t> m_begin = 0;
    alignas(64) std::atomic<std::size_t> m_end = 0;
};

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
        std::array<quint64, words> copy = {};
        std::memcpy(copy.data(), &value, sizeof value);
        const unsigned turn = m_turn.load(std::memory_order_relaxed);
        m_turn.store(turn + 1, std::memory_order_relaxed); // odd: being written
        std::atomic_thread_fence(std::memory_order_release);
        for (std::size_t i = 0; i < words; ++i)
            m_words[i].store(copy[i], std::memory_order_relaxed);
        m_turn.store(turn + 2, std::memory_order_release);
    }

    T read() const
    {
        std::array<quint64, words> copy;
        unsigned before = 0;
        do {
            before = m_turn.load(std::memory_order_acquire);
            for (std::size_t i = 0; i < words; ++i)
                copy[i] = m_words[i].load(std::memory_order_relaxed);
            std::atomic_thread_fence(std::memory_order_acquire);
        } while (before % 2 != 0 || before != m_turn.load(std::memory_order_relaxed));
        T value;
        std::memcpy(static_cast<void *>(&value), copy.data(), sizeof value);
        return value;
    }

private:
    static constexpr std::size_t words = (sizeof(T) + 7) / 8;
    std::array<std::atomic<quint64>, words> m_words = {};
    std::atomic<unsigned> m_turn = 0;
};

} // namespace virtualboard
