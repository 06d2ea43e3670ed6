/// \file
/// The walk of a load: the children of the root in their order, with the numbers that they get. The
/// loader sends what it reads on it; the checker and whoever counts exchanges look at the same.
#pragma once

#include "configuration/streamreaders.h"

namespace testconfiguration {

/// The running numbers of a load; they belong to somebody else.
struct Counters
{
    quint8 &smvCount; ///< number of the next SV publication stream
    quint8 &gooseCount; ///< number of the next GOOSE publication stream
    SubscriptionNumbers subscriptions;

    void reset();
};

class Walk
{
public:
    /// What a child of the root describes, by its tag.
    enum class Kind { Other, SvPublication, GoosePublication, Subscription };

    /// Resets the counters.
    Walk(const Document &document, Counters counters, RemarkList &remarks);

    [[nodiscard]] bool atEnd() const { return m_child.isNull(); }
    [[nodiscard]] Element element() const { return m_child; }
    [[nodiscard]] Kind kind() const;

    // Each for an element of its kind, once; nothing if it is refused.
    [[nodiscard]] std::optional<SvPublication> svPublication(int samplesPerSecond);
    [[nodiscard]] std::optional<GoosePublication> goosePublication();
    [[nodiscard]] std::optional<GooseSubscription> subscription();

    /// Counts the element and goes on to the next. A stream beyond the limit takes no number.
    void advance();

private:
    Counters m_counters;
    RemarkList &m_remarks;
    Element m_child;
};

} // namespace testconfiguration
