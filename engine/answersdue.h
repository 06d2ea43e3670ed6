/// \file
/// Whose answer a datagram from the board is.
#pragma once

#include "engine/lumtarengine.h"
#include "protocol/envelope.h"

#include <algorithm>
#include <chrono>
#include <deque>

/// The answers that the board owes. It answers in the order in which it receives, and no answer
/// says to which datagram it belongs; so each is taken for the oldest one that waits for such an
/// answer.
class LumtarEngine::AnswersDue
{
public:
    /// What is owed so far is owed to earlier exchanges.
    void beginExchange() { ++m_exchange; }
    /// A datagram of this exchange has gone out.
    void sent(bool wantsData);
    /// Notes an answer. Returns whether it is to this exchange, whose datagram has gone out.
    bool take(envelope::Answer answer);
    /// A try has waited in vain: what is owed is taken for lost.
    void giveUp();
    /// For how long another copy of the last answer may be on its way.
    [[nodiscard]] int millisecondsToQuiet() const;

private:
    using Clock = std::chrono::steady_clock;
    struct Due
    {
        Clock::time_point sent;
        quint64 exchange;
    };
    using Queue = std::deque<Due>;

    static constexpr std::chrono::milliseconds kLongestWait{1500}; // that of a try
    static constexpr std::chrono::milliseconds kQuietTime{2};

    quint64 m_exchange = 0;
    Queue m_acknowledgements; ///< oldest first
    Queue m_dataReplies;
    Clock::time_point m_lastAnswer{};
};

inline void LumtarEngine::AnswersDue::sent(bool wantsData)
{
    const Due due{Clock::now(), m_exchange};
    m_acknowledgements.push_back(due);
    if (wantsData)
        m_dataReplies.push_back(due);
}

inline bool LumtarEngine::AnswersDue::take(envelope::Answer answer)
{
    if (answer == envelope::Answer::None)
        return false;
    const auto now = Clock::now();
    m_lastAnswer = now;
    Queue &queue = answer == envelope::Answer::Acknowledgement ? m_acknowledgements : m_dataReplies;
    while (!queue.empty() && now - queue.front().sent > kLongestWait)
        queue.pop_front();
    if (queue.empty())
        return true;
    const bool isOurs = queue.front().exchange == m_exchange;
    queue.pop_front();
    return isOurs;
}

inline void LumtarEngine::AnswersDue::giveUp()
{
    m_acknowledgements.clear();
    m_dataReplies.clear();
}

inline int LumtarEngine::AnswersDue::millisecondsToQuiet() const
{
    using std::chrono::milliseconds;
    const auto left = kQuietTime - (Clock::now() - m_lastAnswer);
    return std::max(0, int(std::chrono::ceil<milliseconds>(left).count()));
}
