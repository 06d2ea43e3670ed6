#include "tools/lumtarctl/runview.h"

#include "tools/terminal/terminal.h"
#include "workbench/sequencetext.h"
#include "workbench/statusjson.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

using namespace workbench;
using statusreply::Changes;
using statusreply::State;

namespace {

QString fileName(const QString &path)
{
    return QFileInfo(path).fileName();
}

class TextView : public RunView
{
public:
    explicit TextView(const PreparedTest &test)
        : m_test(test)
    { }

    void sending(const TransferProgress &progress, bool isNews) override;
    void loaded(const LumtarEngine &engine) override;
    void started() override;
    void playing(const State &state, bool isNews) override
    {
        m_line.show(stateText(state, m_test.sequence), isNews, activeText(state, m_test.sequence));
    }
    void ended(const State *last, const Changes &changes, const Expected<void> &result) override;

private:
    const PreparedTest &m_test;
    LiveLine m_line;
};

void TextView::sending(const TransferProgress &progress, bool isNews)
{
    constexpr int kBarWidth = 24; // characters
    QString text = QStringLiteral("%1/%2  %3")
                       .arg(progress.done(), 4)
                       .arg(progress.total())
                       .arg(progress.element());
    if (m_line.isOnTerminal()) {
        const int bars = kBarWidth * progress.done() / progress.total();
        text = QStringLiteral("[%1%2]").arg(QString(bars, QLatin1Char('#')),
                                            QString(kBarWidth - bars, QLatin1Char('-')))
            + text;
    }
    m_line.show(text, isNews);
}

void TextView::loaded(const LumtarEngine &engine)
{
    m_line.clear();
    sayWrapped(QStringLiteral("loaded %1: %2 SV and %3 GOOSE streams, %4 GOOSE subscriptions")
                   .arg(fileName(m_test.configuration.document.path()))
                   .arg(engine.smvCount)
                   .arg(engine.gooseCount)
                   .arg(engine.groupNum - 1));
}

void TextView::started()
{
    m_line.clear();
    say(QStringLiteral("started %1: %2 steps")
            .arg(fileName(m_test.sequencePath))
            .arg(m_test.sequence.steps.size()));
    sayWrapped(stepTexts(m_test.sequence));
}

void TextView::ended(const State *last, const Changes &changes, const Expected<void> & /*result*/)
{
    m_line.keep();
    sayWrapped(changeTexts(changes, m_test.sequence, outputWidth()));
    if (last)
        sayWrapped(concerns(*last), Tone::Doubtful);
}

class JsonView : public RunView
{
public:
    explicit JsonView(const PreparedTest &test)
        : m_test(test)
    { }

    void sending(const TransferProgress &progress, bool isNews) override
    {
        if (isNews)
            tell("sending",
                 {{QStringLiteral("done"), progress.done()},
                  {QStringLiteral("total"), progress.total()},
                  {QStringLiteral("element"), progress.element()}});
    }
    void loaded(const LumtarEngine &engine) override
    {
        tell("loaded",
             {{QStringLiteral("file"), m_test.configuration.document.path()},
              {QStringLiteral("svStreams"), engine.smvCount},
              {QStringLiteral("gooseStreams"), engine.gooseCount},
              {QStringLiteral("subscriptions"), engine.groupNum - 1}});
    }
    void started() override
    {
        tell("started",
             {{QStringLiteral("file"), m_test.sequencePath},
              {QStringLiteral("steps"), int(m_test.sequence.steps.size())}});
    }
    void playing(const State &state, bool isNews) override
    {
        if (isNews)
            tell("state", toJson(state, m_test.sequence));
    }
    void ended(const State *last, const Changes &changes, const Expected<void> &result) override
    {
        QJsonObject object{{QStringLiteral("changes"), toJson(changes, m_test.sequence)}};
        if (last)
            object[QStringLiteral("state")] = toJson(*last, m_test.sequence);
        if (!result)
            object[QStringLiteral("failure")] = result.error().message;
        tell("end", object);
    }

private:
    static void tell(const char *event, QJsonObject object)
    {
        object[QStringLiteral("event")] = QLatin1String(event);
        say(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
    }

    const PreparedTest &m_test;
};

} // namespace

std::unique_ptr<RunView> textView(const PreparedTest &test)
{
    return std::make_unique<TextView>(test);
}

std::unique_ptr<RunView> jsonView(const PreparedTest &test)
{
    return std::make_unique<JsonView>(test);
}
