/// \file
/// One reading of a test configuration, for the loader, which sends what it reads, and for programs
/// that look at a configuration without a board.
///
/// Each read function makes of one element what the loader makes of it, and remarks on everything
/// that it skips, refuses or tolerates.
#pragma once

#include "gooseframe.h"
#include "lumtar_export.h"
#include "streamdescriptions.h"
#include "subscription.h"
#include "svframe.h"

#include <QDomDocument>
#include <QDomElement>
#include <QString>
#include <QVector>

#include <optional>

namespace testconfiguration {

constexpr int kMaxSvStreams = 64; ///< the stream number has six bits
constexpr int kMaxSvChannels = 255; ///< a stream description counts them in one byte
constexpr int kMaxGooseStreams = 6; ///< one offset record each
constexpr int kSequenceGooseStreams = 4; ///< the first ones, which a state sequence can change
constexpr int kMaxGooseEntries = 65535; ///< in a published or subscribed dataset
constexpr int kOutputs = 4; ///< binary outputs of a state sequence
constexpr int kLightPorts = 5; ///< ports on which GOOSE is subscribed
constexpr int kMaxLightGroup = 31; ///< on one light port; a subscription has five bits for it

/// A remark on a place of the file.
struct Remark
{
    enum Severity {
        Warning, ///< the loader goes on with what it made of it
        Error ///< the loader skips the element, or the file
    };
    Severity severity;
    int line; ///< from 1; of the end of the element's start tag
    int column;
    QString text;
};
using Remarks = QVector<Remark>;

/// The document at \a path: empty, with one error in \a remarks, when the file cannot be read, is
/// no well-formed XML, is larger than 16 MiB, nests deeper than 100 elements, has more than 500000
/// elements and attributes, expands to more than 16777216 characters, or its root is not `ied`.
LUMTAR_EXPORT QDomDocument readDocument(const QString &path, Remarks &remarks);

/// What a child of the root describes, by its tag.
enum class Kind { Other, SvPublication, GoosePublication, Subscription };
LUMTAR_EXPORT Kind kindOf(const QDomElement &element);

/// A sampled-value stream to publish.
struct SvPublication
{
    Message_9_2 frame;
    QByteArray download; ///< the frame's command
    SMV_MessageStructure description;
};

/// Reads an `in_smv` as stream number \a stream; nothing when it is refused.
LUMTAR_EXPORT std::optional<SvPublication>
readSvPublication(const QDomElement &element, int stream, int samplesPerSecond, Remarks &remarks);

/// A dataset entry that carries a binary output.
struct OutputBinding
{
    int output; ///< 1 to 4
    int position; ///< as the file has it
};

/// A GOOSE stream to publish.
struct GoosePublication
{
    Message_goose frame;
    QByteArray download; ///< the frame's command
    GOOSE_MessageStructure description;
    QVector<OutputBinding> bindings; ///< in file order; a later one replaces an earlier one
};

/// Reads an `in_goose` as stream number \a stream and fills the stream's offset record; nothing
/// when it is refused.
LUMTAR_EXPORT std::optional<GoosePublication> readGoosePublication(const QDomElement &element,
                                                                   int stream,
                                                                   GooseDataOffsetAddr &record,
                                                                   Remarks &remarks);

/// The running numbers of the subscriptions of one configuration.
struct SubscriptionNumbers
{
    quint8 &group; ///< of the next subscription
    quint8 &logicChannel; ///< next free
    bool &logicChannelsUsedUp; ///< logicChannel has wrapped from 255 to 0
    quint8 (&lightGroup)[kLightPorts]; ///< of the next subscription per light port
};

/// A mapped dataset entry.
struct MappedEntry
{
    int position; ///< from 1
    int logicChannel;
};

/// A GOOSE stream of the device under test to subscribe to.
struct Subscription
{
    Goose_command command;
    int group;
    int lightPort; ///< 1 to 5
    int lightGroup;
    QVector<MappedEntry> mapped;
};

/// Reads a `goose` child of the root and advances \a numbers; nothing when it is refused or maps no
/// entry.
LUMTAR_EXPORT std::optional<Subscription>
readSubscription(const QDomElement &element, const SubscriptionNumbers &numbers, Remarks &remarks);

} // namespace testconfiguration
