#include "progress.h"

#include <textcodec.h>

#include <algorithm>
#include <set>

using testconfiguration::Kind;

namespace {

constexpr int kBarWidth = 24; // characters

/// "SV stream 1 of 2: NAME"
QString numbered(const char *kind, int index, int count, const QString &name)
{
    return printable(QStringLiteral("%1 %2 of %3: %4")
                         .arg(QLatin1String(kind))
                         .arg(index + 1)
                         .arg(count)
                         .arg(name));
}

QString nameOf(const SvStream &stream)
{
    return textcodec::fromCString(stream.publication.frame.SVID_Value.constData());
}

QString nameOf(const GooseStream &stream)
{
    return textcodec::fromCString(stream.publication.frame.gocbRef_Value.constData());
}

QString nameOf(const testconfiguration::Subscription &subscription)
{
    const Goose_command &command = subscription.command;
    return QStringLiteral("APPID %1")
        .arg(QString::fromLatin1((command.AppId_High + command.AppId_Low).toHex()));
}

/// The GOOSE streams that a step writes its binary outputs to, one command each.
int streamsWithOutputs(const CheckedConfiguration &configuration)
{
    std::set<int> streams;
    for (const OutputTarget &target : configuration.outputs)
        streams.insert(target.stream);
    streams.erase(OutputTarget().stream);
    return static_cast<int>(streams.size());
}

} // namespace

Progress::Progress(BoardSession &session, const CheckedConfiguration &configuration,
                   const Sequence &sequence)
    : m_session(session)
{
    m_elements.append({QStringLiteral("reset"), 1});
    addConfiguration(configuration);
    addSequence(configuration, sequence);
    m_elements.append({QStringLiteral("start"), 1});
    for (const Element &each : m_elements)
        m_total += each.exchanges;
    m_left = m_elements.first().exchanges;
    session.onSent = [this](bool again) { sent(again); };
}

void Progress::addConfiguration(const CheckedConfiguration &configuration)
{
    constexpr int kPublication = 2; // frame template and description
    const auto add = [this](const char *kind, const auto &streams, int &index, int exchanges) {
        const int count = static_cast<int>(streams.size());
        m_elements.append({numbered(kind, index, count, nameOf(streams[index])), exchanges});
        ++index;
    };
    int sv = 0;
    int goose = 0;
    int subscription = 0;
    for (const Kind kind : configuration.order) {
        if (kind == Kind::SvPublication)
            add("SV stream", configuration.svStreams, sv, kPublication);
        else if (kind == Kind::GoosePublication)
            add("GOOSE stream", configuration.gooseStreams, goose, kPublication);
        else
            add("GOOSE subscription", configuration.subscriptions, subscription, 1);
    }
}

void Progress::addSequence(const CheckedConfiguration &configuration, const Sequence &sequence)
{
    constexpr int kAnalogOutputs = 16;
    constexpr int kOptionAndCondition = 2;
    const int exchanges = kAnalogOutputs + streamsWithOutputs(configuration) + kOptionAndCondition;
    const int count = static_cast<int>(sequence.steps.size());
    for (int i = 0; i < count; ++i)
        m_elements.append({numbered("step", i, count, sequence.names[i]), exchanges});
}

void Progress::sent(bool again)
{
    bool isNews = m_begun == 0;
    if (!again) {
        if (m_left == 0 && m_element + 1 < m_elements.size()) {
            m_left = m_elements[++m_element].exchanges;
            isNews = true;
        }
        m_left = std::max(m_left - 1, 0);
        m_begun = std::min(m_begun + 1, m_total);
    }
    show(m_begun - 1, m_elements[m_element].text + QLatin1String(again ? ", no answer yet" : ""),
         isNews);
}

void Progress::finish()
{
    show(m_total, QStringLiteral("done"), true);
    m_line.clear();
}

void Progress::show(int done, const QString &element, bool isNews)
{
    const int bars = kBarWidth * done / m_total;
    QString text = QStringLiteral("%1/%2  %3").arg(done, 4).arg(m_total).arg(element);
    if (m_line.isOnTerminal())
        text = QStringLiteral("[%1%2]").arg(QString(bars, QLatin1Char('#')),
                                            QString(kBarWidth - bars, QLatin1Char('-')))
            + text;
    m_line.show(text, isNews);
}
