#include "tools/lumtarctl/shotworker.h"

#include "tools/lumtarctl/plannedtest.h"
#include "tools/terminal/terminal.h"
#include "workbench/jsonreader.h"
#include "workbench/shotplayer.h"

#include <QFile>
#include <QJsonDocument>
#include <QSet>

#include <csignal>
#include <cstdio>
#include <mutex>

using namespace workbench;

namespace {

/// What the board tells, each text once.
class Notices
{
public:
    void tell(const QString &line)
    {
        constexpr int kMost = 100;
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_told.contains(line) || m_told.size() >= kMost)
            return;
        m_told.insert(line);
        complain(line);
    }

private:
    std::mutex m_mutex;
    QSet<QString> m_told;
};

/// Plays what \a line asks for. Fails if that is no shot of the plan.
Expected<ShotRecord> answer(const QByteArray &line, const PlannedTest &test, ShotPlayer &player)
{
    JsonFile file(QStringLiteral("the shot"), line);
    const JsonNode root = file.root();
    const Shot shot = readShot(root, *test.plan);
    const QString capture = root.optional(QStringLiteral("capture")).text();
    const QString digest = root.optional(QStringLiteral("digest")).text();
    if (const Expected<void> sound = file.remarks().expectNoErrors(); !sound)
        return tl::unexpected<Failure>(sound.error());
    if (digest.isEmpty() || digest.toLatin1() == test.digest())
        return player.play(shot, capture);
    ShotRecord record;
    record.shot = shot;
    record.error = QStringLiteral("the plan, or a file that it names, has changed since the test "
                                  "began");
    return record;
}

bool print(const ShotRecord &record)
{
    const QByteArray line = QJsonDocument(toJson(record)).toJson(QJsonDocument::Compact) + '\n';
    return std::fwrite(line.constData(), 1, std::size_t(line.size()), stdout)
        == std::size_t(line.size())
        && std::fflush(stdout) == 0;
}

} // namespace

Expected<int> playShots(const QString &planPath)
{
    std::signal(SIGINT, SIG_IGN); // whoever hands out the shots also ends this program
    const Expected<PlannedTest> test = readPlannedTest(planPath);
    if (!test)
        return tl::unexpected<Failure>(test.error());
    Notices notices;
    ShotPlayer::Options options;
    options.notice = [&notices](const QString &line) { notices.tell(line); };
    ShotPlayer player(*test->plan, test->configuration, options);
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly))
        return failure(Failure::Helper, QStringLiteral("cannot read the standard input"));
    for (QByteArray line = input.readLine(); !line.isEmpty(); line = input.readLine()) {
        const Expected<ShotRecord> record = answer(line, *test, player);
        if (!record)
            return tl::unexpected<Failure>(record.error());
        if (!print(*record))
            return failure(Failure::Helper, QStringLiteral("nobody reads the answers"));
    }
    return 0;
}
