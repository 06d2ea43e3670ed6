/// \file
/// The reading of the three kinds of stream: each of these makes of one element what the loader
/// sends, and remarks on everything that it skips, refuses or tolerates. They do nothing else.
#pragma once

#include "configuration/elementreader.h"

#include "protocol/boardlimits.h"

#include <limits>
#include <optional>

namespace testconfiguration {

/// Reads an `in_smv` as stream number \a stream whose smpCnt wraps at the low 16 bits of \a
/// samplesPerSecond; nothing when it is refused.
[[nodiscard]] std::optional<SvPublication>
readSvPublication(const Element &element, int stream, int samplesPerSecond, RemarkList &remarks);

/// Reads an `in_goose` as stream number \a stream; nothing when it is refused.
[[nodiscard]] std::optional<GoosePublication> readGoosePublication(const Element &element,
                                                                   int stream, RemarkList &remarks);
/// The child of an `in_goose` that describes its frame; none if there is none.
[[nodiscard]] Element frameElementOf(const Element &element);

/// The running numbers of the subscriptions of one configuration.
struct SubscriptionNumbers
{
    quint8 &group; ///< of the next subscription
    quint8 &logicChannel; ///< next free
    bool &logicChannelsUsedUp; ///< logicChannel has wrapped from 255 to 0
    quint8 (&lightGroup)[limits::kLightPorts]; ///< of the next subscription per light port
};

/// Reads a `goose` child of the root and advances \a numbers; nothing when it is refused or maps no
/// entry.
[[nodiscard]] std::optional<GooseSubscription>
readSubscription(const Element &element, SubscriptionNumbers numbers, RemarkList &remarks);

/// Why an element with this number is refused.
[[nodiscard]] QString refusal(const QString &name, int value, int most, int least = 0);

/// The limits of whole numbers whose range is their reader's business.
constexpr qint64 kLeastInt = std::numeric_limits<int>::min();
constexpr qint64 kMostInt = std::numeric_limits<int>::max();
constexpr qint64 kMost16 = 0xffff;
constexpr qint64 kMost32 = 0xffffffff;

/// The binding of a binary output, and the mapping of a subscribed entry.
constexpr AttributeRule kWhich{QLatin1String("Which"), AttributeRule::Decimal, kLeastInt, kMostInt};
constexpr AttributeRule kPos{QLatin1String("Pos"), AttributeRule::Decimal, kLeastInt, kMostInt};
/// The addressing of a published stream, beside the VLAN, whose name differs.
constexpr AttributeRule kMac{QLatin1String("mac"), AttributeRule::Mac};
constexpr AttributeRule kPriority{QLatin1String("priority"), AttributeRule::Hexadecimal, 0, 7};
constexpr AttributeRule kAppId{QLatin1String("appid"), AttributeRule::Decimal, 0, kMost16};
constexpr AttributeRule kOutputPort{QLatin1String("portindex"), AttributeRule::Decimal, 1,
                                    limits::kOutputPorts};
constexpr qint64 kMostVlanId = 0xfff;

} // namespace testconfiguration
