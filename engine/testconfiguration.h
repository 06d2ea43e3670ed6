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
constexpr int kBinaryOutputs = 4; ///< binary outputs of a state sequence
constexpr int kLightPorts = 5; ///< ports on which GOOSE is subscribed
constexpr int kMaxLightGroup = 31; ///< on one light port; a subscription has five bits for it

/// A remark on a place of the file.
struct Remark
{
    /// What the loader does about it.
    enum Severity {
        Warning, ///< tolerated
        Error ///< the loader skips the file or a part of it, or the board cannot do what it says
    };
    Severity severity; ///< warning or error
    int line; ///< from 1, of the end of the element's start tag; 0 for the file as a whole
    int column; ///< in that line, from 1; 0 for the file as a whole
    QString text; ///< what was skipped, refused or tolerated, and why
};
using Remarks = QVector<Remark>; ///< in the order in which they were found

/// The document at \a path: empty, with one error in \a remarks, when the file cannot be read, is
/// in an unknown encoding, is no well-formed XML, or its root is not `ied`; and when it would not
/// stay bounded: above 16 MiB, 1000 attributes of one element, 200000 elements and attributes, 100
/// levels of elements (looked for in a file above 1 MiB or 10000 tags), 4096 characters of one
/// entity, 4096 entity references.
[[nodiscard]] LUMTAR_EXPORT QDomDocument readDocument(const QString &path, Remarks &remarks);

/// The characters that the parser sees of the file at \a path, to find the places in it that
/// remarks name; empty when it cannot be read.
LUMTAR_EXPORT QString readSource(const QString &path);

/// What a child of the root describes, by its tag.
enum class Kind { Other, SvPublication, GoosePublication, Subscription };
/// The kind of \a element; its tag is compared without regard to case.
LUMTAR_EXPORT Kind kindOf(const QDomElement &element);

/// A sampled-value stream to publish.
struct SvPublication
{
    Message_9_2 frame; ///< as downloaded, with its offsets
    QByteArray download; ///< the frame's command
    SMV_MessageStructure description; ///< the command that follows
};

/// Reads an `in_smv` as stream number \a stream, 0 to 63, whose smpCnt wraps at the low 16 bits of
/// \a samplesPerSecond; nothing when it is refused.
[[nodiscard]] LUMTAR_EXPORT std::optional<SvPublication>
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
    Message_goose frame; ///< as downloaded, with its offsets
    QByteArray download; ///< the frame's command
    GOOSE_MessageStructure description; ///< the command that follows
    QVector<OutputBinding> bindings; ///< in file order; a later one replaces an earlier one
};

/// Reads an `in_goose` as stream number \a stream, 0 to 5, and fills the stream's offset record;
/// nothing when it is refused.
[[nodiscard]] LUMTAR_EXPORT std::optional<GoosePublication>
readGoosePublication(const QDomElement &element, int stream, GooseDataOffsetAddr &record,
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
    int logicChannel; ///< 0 to 255
};

/// A GOOSE stream of the device under test to subscribe to.
struct Subscription
{
    Goose_command command; ///< the subscription command
    int group; ///< from 1, over the whole configuration
    int lightPort; ///< 1 to 5
    int lightGroup; ///< 1 to 31, on that port
    QVector<MappedEntry> mapped; ///< in file order
};

/// Reads a `goose` child of the root and advances \a numbers; nothing when it is refused or maps no
/// entry.
[[nodiscard]] LUMTAR_EXPORT std::optional<Subscription>
readSubscription(const QDomElement &element, SubscriptionNumbers numbers, Remarks &remarks);

} // namespace testconfiguration
