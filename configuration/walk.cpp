#include "configuration/walk.h"

#include <algorithm>
#include <iterator>

namespace testconfiguration {

namespace {

constexpr QLatin1String kSvTag("in_smv");
constexpr QLatin1String kGooseTag("in_goose");
constexpr QLatin1String kSubscriptionTag("goose");

} // namespace

void Counters::reset()
{
    smvCount = 0;
    gooseCount = 0;
    subscriptions.group = 1;
    subscriptions.logicChannel = 0;
    subscriptions.logicChannelsUsedUp = false;
    std::fill(std::begin(subscriptions.lightGroup), std::end(subscriptions.lightGroup), quint8(1));
}

Walk::Walk(const Document &document, Counters counters, RemarkList &remarks)
    : m_counters(counters)
    , m_remarks(remarks)
    , m_child(Element(document).firstChild())
{
    m_counters.reset();
    ElementReader(Element(document), QLatin1String(), remarks)
        .finish({kGooseTag, kSvTag, kSubscriptionTag});
}

Walk::Kind Walk::kind() const
{
    if (m_child.hasTag(kGooseTag))
        return Kind::GoosePublication;
    if (m_child.hasTag(kSvTag))
        return Kind::SvPublication;
    return m_child.hasTag(kSubscriptionTag) ? Kind::Subscription : Kind::Other;
}

std::optional<SvPublication> Walk::svPublication(int samplesPerSecond)
{
    return readSvPublication(m_child, m_counters.smvCount, samplesPerSecond, m_remarks);
}

std::optional<GoosePublication> Walk::goosePublication()
{
    return readGoosePublication(m_child, m_counters.gooseCount, m_remarks);
}

std::optional<GooseSubscription> Walk::subscription()
{
    return readSubscription(m_child, m_counters.subscriptions, m_remarks);
}

void Walk::advance()
{
    const auto count = [](quint8 &number, int limit) {
        number = quint8(std::min(number + 1, limit));
    };
    if (kind() == Kind::SvPublication)
        count(m_counters.smvCount, limits::kSvStreams);
    else if (kind() == Kind::GoosePublication)
        count(m_counters.gooseCount, limits::kGooseStreams);
    m_child = m_child.nextSibling();
}

} // namespace testconfiguration
