/// \file
/// Test configurations: read once, checked without a board, loaded by LumtarEngine.
#pragma once

#include "gooseframe.h"
#include "lumtar_export.h"
#include "streamdescriptions.h"
#include "subscription.h"
#include "svframe.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

#include <array>
#include <memory>
#include <variant>

class QDomElement;

namespace testconfiguration {

/// A place of a file; 0 and 0 for the file as a whole.
struct Place
{
    int line = 0; ///< from 1
    int column = 0; ///< in that line, from 1, in characters
};

/// A remark on a place of the file: of an element's "<", or of an attribute's name.
struct Remark
{
    /// What the loader does about it.
    enum Severity {
        Warning, ///< tolerated
        Error ///< the loader skips the file or a part of it, or the board cannot do what it says
    };
    Severity severity; ///< warning or error
    Place place; ///< where
    QString text; ///< what was skipped, refused or tolerated, and why
};

struct Tree;

/// A file that has been read. Copies share the content.
class LUMTAR_EXPORT Document
{
public:
    /// The document at \a path: empty when the file cannot be read, is in an unknown encoding, is
    /// no well-formed XML, or its root is not `ied`; and when it would not stay bounded: above 16
    /// MiB, 1000 attributes of one element, 200000 elements and attributes, 100 levels of elements
    /// (looked for in a file above 1 MiB or 10000 tags), 4096 characters of one entity, 4096 entity
    /// references.
    [[nodiscard]] static Document read(const QString &path);

    /// An element of a tree that somebody else has read, with all below it, as the root. Its places
    /// are those that the element knows, the ends of start tags.
    [[nodiscard]] static Document fromElement(const QDomElement &element);

    /// Whether there is nothing to load, for the reason error().
    [[nodiscard]] bool isEmpty() const { return !m_tree; }
    [[nodiscard]] Remark error() const { return m_error; } ///< of an empty document
    [[nodiscard]] QString path() const { return m_path; } ///< as given to read()

    /// For the readers of this folder.
    [[nodiscard]] const Tree *tree() const { return m_tree.get(); }

private:
    QString m_path;
    std::shared_ptr<const Tree> m_tree;
    Remark m_error = {Remark::Error, {}, {}};
};

/// A sampled-value stream to publish.
struct SvPublication
{
    int stream; ///< number, from 0
    Message_9_2 frame; ///< as downloaded, with its offsets
    QByteArray download; ///< the frame's command
    SMV_MessageStructure description; ///< the command that follows
    QStringList channelNames; ///< per dataset entry, as the file has them
};

/// A dataset entry that carries a binary output.
struct OutputBinding
{
    int output; ///< 1 to 4
    int position; ///< as the file has it, from 1
    Place place; ///< of the binding in the file
};

/// A GOOSE stream to publish.
struct LUMTAR_EXPORT GoosePublication
{
    /// Fills \a record with the places of the stream's values, and makes the two commands.
    void build(GooseDataOffsetAddr &record);

    int stream; ///< number, from 0
    Message_goose frame; ///< with its offsets once it is built
    QVector<OutputBinding> bindings; ///< in file order; a later one replaces an earlier one
    int unsupportedTypes = 0; ///< dataset entries with an unknown type code, which have no type
    QByteArray download; ///< the frame's command, once it is built
    GOOSE_MessageStructure description; ///< the command that follows, likewise
};

/// A mapped dataset entry.
struct MappedEntry
{
    int position; ///< from 1
    int logicChannel; ///< 0 to 255
};

/// A GOOSE stream of the device under test to subscribe to.
struct GooseSubscription
{
    Goose_command command; ///< the subscription command
    int group; ///< from 1, over the whole configuration
    int lightPort; ///< 1 to 5
    int lightGroup; ///< 1 to 31, on that port
    QVector<MappedEntry> mapped; ///< in file order
};

/// What a child of the root becomes.
using Stream = std::variant<SvPublication, GoosePublication, GooseSubscription>;

/// What would carry a binary output of the state sequence.
struct OutputTarget
{
    int stream = -1; ///< of GOOSE; -1: nothing carries it
    int position = 0; ///< of the dataset entry, from 1
    int tag = 0; ///< of the entry, an MMS data tag; 0 where there is none
};

/// What a load of a test configuration makes of it, and what is wrong with the file.
struct LUMTAR_EXPORT CheckedConfiguration
{
    /// Whether there was a document to check.
    [[nodiscard]] bool isRead() const { return !document.isEmpty(); }

    Document document; ///< what was checked, to be loaded
    QVector<Stream> streams; ///< in the order in which they are loaded
    std::array<OutputTarget, 4> outputs; ///< binary outputs 1 to 4
    QVector<Remark> remarks; ///< by place; at most 1000 errors and 1000 warnings
    int errors = 0; ///< all of them
    int warnings = 0; ///< all of them
};

/// Checks a document, for sampled values at \a samplesPerSecond. An empty one has one error and
/// nothing else. Installs the default codecs (see textcodec.h), which the lengths of texts depend
/// on.
[[nodiscard]] LUMTAR_EXPORT CheckedConfiguration check(const Document &document,
                                                       int samplesPerSecond);

/// "FILE:LINE:COLUMN: error: text"; without a place where there is none.
[[nodiscard]] LUMTAR_EXPORT QString toString(const Remark &remark, const QString &file);

} // namespace testconfiguration
