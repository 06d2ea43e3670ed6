#include "workbench/transferprogress.h"

#include "protocol/textcodec.h"
#include "workbench/printabletext.h"

#include <algorithm>
#include <map>
#include <set>

namespace workbench {

using namespace testconfiguration;

namespace {

/// "SV stream 1 of 2: NAME"
QString numbered(const char *kind, int index, int count, const QString &name)
{
    return printable(QStringLiteral("%1 %2 of %3: %4")
                         .arg(QLatin1String(kind))
                         .arg(index + 1)
                         .arg(count)
                         .arg(name));
}

/// What a kind of stream is called, how a stream of it is known, and how many exchanges it takes.
struct Description
{
    const char *kind;
    QString name;
    int exchanges;
};
constexpr int kPublication = 2; // frame template and description

Description describe(const SvPublication &stream)
{
    return {"SV stream", textcodec::fromCString(stream.frame.SVID_Value.constData()), kPublication};
}

Description describe(const GoosePublication &stream)
{
    return {"GOOSE stream", textcodec::fromCString(stream.frame.gocbRef_Value.constData()),
            kPublication};
}

Description describe(const GooseSubscription &stream)
{
    const Goose_command &command = stream.command;
    return {"GOOSE subscription",
            QStringLiteral("APPID %1")
                .arg(QString::fromLatin1((command.AppId_High + command.AppId_Low).toHex())),
            1};
}

/// The GOOSE streams that a step writes its binary outputs to, one command each.
int streamsWithOutputs(const CheckedConfiguration &configuration)
{
    std::set<int> streams;
    for (const OutputTarget &target : configuration.outputs)
        streams.insert(target.stream);
    streams.erase(OutputTarget().stream);
    return int(streams.size());
}

} // namespace

TransferProgress::TransferProgress(const CheckedConfiguration &configuration,
                                   const Sequence &sequence)
{
    m_elements.append({QStringLiteral("reset"), 1});
    addConfiguration(configuration);
    addSequence(configuration, sequence);
    m_elements.append({QStringLiteral("start"), 1});
    for (const Element &each : m_elements)
        m_total += each.exchanges;
    m_left = m_elements.first().exchanges;
}

void TransferProgress::addConfiguration(const CheckedConfiguration &configuration)
{
    std::map<std::size_t, int> counts; // by kind
    for (const Stream &each : configuration.streams)
        ++counts[each.index()];
    std::map<std::size_t, int> seen;
    for (const Stream &each : configuration.streams) {
        const Description stream =
            std::visit([](const auto &kind) { return describe(kind); }, each);
        m_elements.append(
            {numbered(stream.kind, seen[each.index()]++, counts[each.index()], stream.name),
             stream.exchanges});
    }
}

void TransferProgress::addSequence(const CheckedConfiguration &configuration,
                                   const Sequence &sequence)
{
    constexpr int kOptionAndCondition = 2;
    const int exchanges =
        SequenceStep::kAnalogOutputs + streamsWithOutputs(configuration) + kOptionAndCondition;
    const int count = int(sequence.steps.size());
    for (int i = 0; i < count; ++i)
        m_elements.append({numbered("step", i, count, sequence.steps[i].name), exchanges});
}

bool TransferProgress::advance(bool again)
{
    bool isNews = m_done < 0;
    if (!again) {
        if (m_left == 0 && m_element + 1 < m_elements.size()) {
            m_left = m_elements[++m_element].exchanges;
            isNews = true;
        }
        m_left = std::max(m_left - 1, 0);
        m_done = std::min(m_done + 1, m_total - 1);
    }
    m_text = m_elements[m_element].text + QLatin1String(again ? ", no answer yet" : "");
    return isNews;
}

void TransferProgress::finish()
{
    m_done = m_total;
    m_text = QStringLiteral("done");
}

} // namespace workbench
