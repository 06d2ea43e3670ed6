#include "workbench/plancheck.h"

#include "virtualboard/inputs/inputfile.h"
#include "workbench/contradictions.h"
#include "workbench/sequencedoubts.h"
#include "workbench/shot.h"

#include <map>
#include <set>

using namespace testconfiguration;

namespace workbench {

namespace {

using FedChannels = std::set<int>;

FedChannels fedChannels(const CheckedConfiguration &configuration)
{
    FedChannels fed;
    for (const Stream &each : configuration.streams) {
        if (const auto *const stream = std::get_if<GooseSubscription>(&each)) {
            for (const MappedEntry &entry : stream->mapped)
                fed.insert(entry.logicChannel);
        }
    }
    return fed;
}

/// What the board made of software says of a script of inputs.
QStringList reportsOn(const virtualboard::InputFile &script, const FedChannels &fed)
{
    QVector<virtualboard::SubscriptionCommand> subscriptions;
    for (const int channel : fed) {
        virtualboard::SubscriptionCommand subscription;
        subscription.logicChannel = channel;
        subscription.entryCount = 1;
        subscription.mappedPositions = {1};
        subscriptions.append(subscription);
    }
    QStringList texts;
    for (const auto &each : script.plan(subscriptions, {}).reports)
        texts += each.text;
    return texts;
}

/// Checks one case of a plan.
class CaseCheck
{
public:
    CaseCheck(const TestPlan &plan, int number, const FedChannels &fed)
        : m_plan(plan)
        , m_number(number)
        , m_case(plan.cases[number])
        , m_node(plan.caseNode(number))
        , m_fed(fed)
    { }

    void checkSequences(const CheckedConfiguration &configuration, int samplesPerSecond);
    void checkDevice() const;
    void checkAssessments() const;

private:
    void expectFed(const JsonNode &node, int channel) const;
    void expectReached(const JsonNode &node, int step) const;
    void checkEvent(const JsonNode &node, const Event &event) const;
    void checkPath(const JsonNode &node, const PathAssessment &path) const;
    void checkSearch(const Search &search) const;
    void checkScript(const JsonNode &node, const QString &path) const;

    const TestPlan &m_plan;
    int m_number;
    const TestCase &m_case;
    const JsonNode &m_node;
    const FedChannels &m_fed;
    std::set<int> m_reached; ///< with any of the values
    std::map<int, std::set<int>> m_ways; ///< from a step, likewise
};

void CaseCheck::checkSequences(const CheckedConfiguration &configuration, int samplesPerSecond)
{
    for (const Shot &shot : checkedShots(m_plan, m_number, int(m_plan.cases.size()))) {
        const Expected<Sequence> sequence = m_plan.sequence(m_number, shot.values);
        if (!sequence)
            continue; // which has been told
        tellContradictions(m_plan.sequenceNode(m_number), *sequence, configuration);
        if (sequence->samplesPerSecond() != samplesPerSecond)
            m_node[QStringLiteral("sequence")].refuse(
                QStringLiteral("has %1 samples per second, and the first case %2: a plan has one "
                               "sample rate, because its configuration is loaded once")
                    .arg(sequence->samplesPerSecond())
                    .arg(samplesPerSecond));
        m_reached.merge(reachedSteps(*sequence));
        for (int i = 0; i < sequence->steps.size(); ++i)
            m_ways[i].merge(waysOut(sequence->steps[i]));
    }
}

void CaseCheck::expectFed(const JsonNode &node, int channel) const
{
    if (m_fed.count(channel) != 0)
        return;
    const QString name = m_case.names.inputs.value(channel);
    node.refuse(QStringLiteral("no subscription feeds logic channel %1").arg(channel)
                + (name.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(name)));
}

void CaseCheck::expectReached(const JsonNode &node, int step) const
{
    if (m_reached.count(step) == 0)
        node.refuse(QStringLiteral("the sequence never reaches this step"));
}

void CaseCheck::checkEvent(const JsonNode &node, const Event &event) const
{
    const QVector<JsonMember> members = node.members();
    for (const JsonMember &each : members) {
        if (each.key == QLatin1String("on") || each.key == QLatin1String("off"))
            expectFed(each.node, event.number);
        else if (each.key == QLatin1String("enter") || each.key == QLatin1String("leave"))
            expectReached(each.node, event.number);
    }
}

void CaseCheck::checkPath(const JsonNode &node, const PathAssessment &path) const
{
    const int count = int(path.steps.size());
    const QVector<JsonNode> steps = node.elements(count, count);
    if (path.steps.first() != 0)
        steps.first().refuse(QStringLiteral("the sequence begins with its first step"));
    for (int i = 1; i < count; ++i) {
        const auto ways = m_ways.find(path.steps[i - 1]);
        if (ways == m_ways.end() || ways->second.count(path.steps[i]) == 0)
            steps[i].refuse(QStringLiteral("the step before does not lead here"));
    }
}

void CaseCheck::checkSearch(const Search &search) const
{
    const JsonNode node = m_node[QStringLiteral("search")];
    const auto check = [&](const JsonNode &edge, const Search::Edge &wanted) {
        checkEvent(edge[QStringLiteral("event")], wanted.event);
        expectReached(edge[QStringLiteral("in")], wanted.step);
    };
    check(node[QStringLiteral("pickUp")], search.pickUp);
    if (search.settings.withDropOff)
        check(node[QStringLiteral("dropOff")], search.dropOff);
}

void CaseCheck::checkAssessments() const
{
    if (const Search *const search = m_case.search())
        return checkSearch(*search);
    const int count = int(m_case.assessments.size());
    const QVector<JsonNode> nodes = m_node[QStringLiteral("assessments")].elements(count, count);
    for (int i = 0; i < count; ++i) {
        const auto &what = m_case.assessments[i].what;
        if (const auto *time = std::get_if<PlannedAssessment::Time>(&what)) {
            const JsonNode node = nodes[i][QStringLiteral("time")];
            checkEvent(node[QStringLiteral("from")], time->fixed.from);
            checkEvent(node[QStringLiteral("to")], time->fixed.to);
        } else if (const auto *level = std::get_if<LevelAssessment>(&what)) {
            const JsonNode node = nodes[i][QStringLiteral("level")];
            expectFed(node[QStringLiteral("input")], level->channel);
            expectReached(node[QStringLiteral("step")], level->step);
        } else if (const auto *never = std::get_if<NeverAssessment>(&what)) {
            checkEvent(nodes[i][QStringLiteral("never")], never->event);
        } else if (const auto *path = std::get_if<PathAssessment>(&what)) {
            checkPath(nodes[i][QStringLiteral("path")], *path);
        }
    }
}

void CaseCheck::checkScript(const JsonNode &node, const QString &path) const
{
    const auto inputs = virtualboard::InputFile::read(path);
    if (!inputs)
        return node.refuse(inputs.error());
    if (inputs->firstTime()) // a capture says by itself what it holds
        return;
    for (const QString &report : reportsOn(*inputs, m_fed))
        node.refuse(path + QStringLiteral(": ") + report);
}

void CaseCheck::checkDevice() const
{
    if (m_case.device.isNothing())
        return;
    const QString key = QStringLiteral("device");
    const JsonNode node = m_node.has(key) ? m_node[key] : m_node.file().root()[key];
    if (!m_case.device.file.isEmpty())
        return checkScript(node[QStringLiteral("file")], m_case.device.file);
    const int count = int(m_case.device.events.size());
    const QVector<JsonNode> inputs = node[QStringLiteral("inputs")].elements(count, count);
    for (int i = 0; i < count; ++i) {
        const StandIn::Event &event = m_case.device.events[i];
        if (event.channel != statusreply::kNoChannel)
            expectFed(inputs[i][QStringLiteral("input")], event.channel);
    }
}

} // namespace

int samplesPerSecond(const TestPlan &plan)
{
    const Expected<Sequence> first = plan.sequence(0, distinctShots(plan, 0).first().values);
    return first ? first->samplesPerSecond() : Sequence().samplesPerSecond();
}

QVector<Remarks> checkPlan(const TestPlan &plan, const CheckedConfiguration &configuration)
{
    if (!configuration.isRead() || configuration.errors > 0)
        return plan.remarks();
    const FedChannels fed = fedChannels(configuration);
    const int rate = samplesPerSecond(plan);
    for (int i = 0; i < plan.cases.size(); ++i) {
        CaseCheck check(plan, i, fed);
        check.checkSequences(configuration, rate);
        check.checkDevice();
        check.checkAssessments();
    }
    return plan.remarks();
}

} // namespace workbench
