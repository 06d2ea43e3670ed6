#include "workbench/testreport.h"

#include "workbench/characteristicpicture.h"
#include "workbench/computedwaveform.h"
#include "workbench/phasorpicture.h"
#include "workbench/resulttext.h"
#include "workbench/waveformpicture.h"

#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <memory>

namespace workbench {

namespace {

constexpr int kMostRows = 1000; ///< of a table
constexpr int kMostCharacteristics = 4; ///< pictures of a sweep
constexpr int kMostStandInEvents = 20; ///< that are told
constexpr int kDigestShown = 16; ///< characters

QString text(double number)
{
    return QString::number(number, 'g', 10);
}

QString secondsText(std::chrono::nanoseconds time)
{
    constexpr int kDigits = 6;
    return QString::number(std::chrono::duration<double>(time).count(), 'f', kDigits);
}

ReportCell outcomeCell(Verdict verdict, bool skipped = false)
{
    return {verdict, outcomeName(verdict, skipped)};
}

/// "+1.250 ms"
QString deviationText(const AssessmentResult &result)
{
    const std::optional<double> deviation = result.deviation();
    if (!deviation)
        return {};
    return QLatin1String(*deviation > 0 ? "+" : "") + valueText(*deviation, result.unit);
}

/// A bar where there is something to be drawn.
ReportCell deviationCell(const AssessmentResult &result)
{
    const Band &allowed = result.allowed;
    ReportCell cell(deviationText(result));
    if (result.actual && allowed.nominal && std::isfinite(allowed.lowest)
        && std::isfinite(allowed.highest))
        cell.bar = DeviationBar{*allowed.nominal, allowed.lowest, allowed.highest, result.actual,
                                result.verdict};
    return cell;
}

QVector<ReportCell> cellsOf(const NamedResult &named)
{
    const AssessmentResult &result = named.result;
    const bool isLimited = !result.allowed.isUnlimited();
    return {named.name,
            result.actual ? valueText(*result.actual, result.unit) : QString(),
            isLimited ? rangeText(result.allowed, result.unit) : QString(),
            deviationText(result),
            deviationCell(result),
            outcomeCell(result.verdict)};
}

QStringList assessmentHeadings()
{
    return {QStringLiteral("assessment"),
            QStringLiteral(">measured"),
            QStringLiteral(">allowed"),
            QStringLiteral(">deviation"),
            QString(),
            QStringLiteral("verdict")};
}

/// "tTrip = 0.5, I = 8"
QString valuesText(const Parameters &values)
{
    QStringList all;
    for (auto each = values.begin(); each != values.end(); ++each)
        all += QStringLiteral("%1 = %2").arg(each.key(), text(each.value()));
    return all.join(QStringLiteral(", "));
}

/// One case as blocks of a report.
class CaseReport
{
public:
    CaseReport(const RecordedTest &test, const CaseResult &result, QVector<ReportBlock> &blocks)
        : m_test(test)
        , m_result(result)
        , m_case(test.plan->cases[result.number])
        , m_blocks(blocks)
    { }

    void write();

private:
    [[nodiscard]] const ShotRecord &recordOf(const ShotResult &shot) const
    {
        return m_test.record.shots[shot.record];
    }
    void heading(const QString &text) { m_blocks.append(ReportHeading{3, text, {}, {}}); }
    void paragraph(const QString &text) { m_blocks.append(ReportParagraph{text, {}}); }
    void writeFacts(const ShotResult *shot);
    void writeAssessments();
    void writeReasons();
    void writeSpreads();
    void writeSearch();
    void writeCharacteristics();
    [[nodiscard]] CharacteristicPicture characteristicOf(int assessment) const;
    [[nodiscard]] const ShotResult *shownShot() const;
    void writeShot(const ShotResult &shot);
    void writePhasors(const Sequence &sequence);
    void writeWaveforms(const Sequence &sequence, const ShotRecord &shot);
    void writeInputs(const ShotRecord &shot);
    void writeChanges(const ShotRecord &shot);
    [[nodiscard]] QString standInText(const Shot &shot) const;
    [[nodiscard]] QString stepName(int step) const;

    const RecordedTest &m_test;
    const CaseResult &m_result;
    const TestCase &m_case;
    QVector<ReportBlock> &m_blocks;
};

QString CaseReport::stepName(int step) const
{
    return step == statusreply::kNoStep ? QStringLiteral("end") : m_case.stepNames.value(step);
}

/// What stood in for the device; empty where nothing did.
QString CaseReport::standInText(const Shot &shot) const
{
    const StandIn &device = m_case.device;
    if (device.isNothing())
        return QStringLiteral("nothing: no input changes by itself");
    if (!device.file.isEmpty())
        return QStringLiteral("the inputs in ") + device.file;
    QStringList events;
    for (const StandIn::Event &each : device.events) {
        const QString name = each.channel == statusreply::kNoChannel ? QStringLiteral("trigger")
            : each.on ? m_case.names.input(each.channel) + QStringLiteral(" on")
                      : m_case.names.input(each.channel) + QStringLiteral(" off");
        const double value =
            each.condition ? shot.values.value(each.condition->parameter) : double(0);
        if (each.condition && (value < each.condition->atLeast || value >= each.condition->below))
            continue;
        events += QStringLiteral("%1 at %2 s").arg(name, text(each.time.in(shot.values)));
    }
    if (events.isEmpty())
        return QStringLiteral("nothing, with these values");
    const int more = int(events.size()) - kMostStandInEvents;
    if (more > 0)
        events = events.mid(0, kMostStandInEvents)
            + QStringList(QStringLiteral("and %1 more").arg(more));
    return events.join(QStringLiteral(", "));
}

void CaseReport::writeFacts(const ShotResult *shot)
{
    ReportTable facts;
    const auto add = [&facts](const QString &name, const QString &fact) {
        if (!fact.isEmpty())
            facts.rows.append({name, fact});
    };
    add(QStringLiteral("sequence"),
        m_case.sequenceName.isEmpty() ? QStringLiteral("in the plan") : m_case.sequenceName);
    add(QStringLiteral("parameters"), valuesText(m_case.parameters));
    if (const Sweep *sweep = m_case.sweep())
        add(QStringLiteral("varied"),
            QStringLiteral("%1, %2 values").arg(sweep->parameter).arg(sweep->points.size()));
    if (m_case.repetitions > 1)
        add(QStringLiteral("repetitions"), QString::number(m_case.repetitions));
    const bool isAlone = shot && m_result.shots.size() == 1;
    if (isAlone && m_test.record.played.isEmpty())
        add(QStringLiteral("stood in for the device"), standInText(recordOf(*shot).shot));
    m_blocks.append(facts);
}

/// A row for each assessment of each shot; if they are too many, first those that have not passed.
void CaseReport::writeAssessments()
{
    struct Row
    {
        const ShotResult *shot;
        const NamedResult *named;
    };
    QVector<Row> rows;
    for (const ShotResult &shot : m_result.shots) {
        for (const NamedResult &each : shot.results)
            rows.append({&shot, &each});
    }
    const int more = int(rows.size()) - kMostRows;
    if (more > 0) {
        std::stable_partition(rows.begin(), rows.end(), [](const Row &row) {
            return row.named->result.verdict != Verdict::Passed;
        });
        rows.resize(kMostRows);
    }
    const bool isAlone = m_result.shots.size() == 1;
    ReportTable table;
    table.headings = assessmentHeadings();
    if (!isAlone)
        table.headings.prepend(QStringLiteral("shot"));
    for (const Row &row : std::as_const(rows)) {
        QVector<ReportCell> cells = cellsOf(*row.named);
        if (!isAlone)
            cells.prepend(shotText(m_case, recordOf(*row.shot).shot));
        table.rows.append(cells);
    }
    heading(QStringLiteral("Assessments"));
    m_blocks.append(table);
    if (more > 0)
        paragraph(QStringLiteral("and %1 more rows").arg(more));
}

/// Why something has not passed, once for each assessment.
void CaseReport::writeReasons()
{
    QStringList told;
    for (const ShotResult &shot : m_result.shots) {
        for (const NamedResult &each : shot.results) {
            if (each.result.verdict == Verdict::Passed || told.contains(each.name))
                continue;
            told += each.name;
            const QString which = shotText(m_case, recordOf(shot).shot);
            m_blocks.append(ReportParagraph{
                QStringLiteral("%1%2: %3.")
                    .arg(each.name, which.isEmpty() ? QString() : QStringLiteral(", ") + which,
                         each.result.reason),
                each.result.verdict});
        }
    }
}

void CaseReport::writeSpreads()
{
    if (m_result.spreads.isEmpty())
        return;
    ReportTable table;
    table.headings =
        QStringList{QStringLiteral("over repetitions"), QStringLiteral(">count"),
                    QStringLiteral(">least"), QStringLiteral(">mean"), QStringLiteral(">most")};
    for (const Spread &each : m_result.spreads.mid(0, kMostRows)) {
        QString name = each.name;
        if (const Sweep *sweep = m_case.sweep())
            name +=
                QStringLiteral(", %1 = %2")
                    .arg(sweep->parameter, text(sweep->points[each.point].value(sweep->parameter)));
        table.rows.append({name, QString::number(each.count), valueText(each.least, each.unit),
                           valueText(each.mean, each.unit), valueText(each.most, each.unit)});
    }
    m_blocks.append(table);
}

void CaseReport::writeSearch()
{
    ReportTable thresholds;
    thresholds.headings = assessmentHeadings();
    thresholds.headings[0] = QStringLiteral("threshold");
    for (const NamedResult &each : m_result.thresholds)
        thresholds.rows.append(cellsOf(each));
    heading(QStringLiteral("Thresholds"));
    m_blocks.append(thresholds);
    for (const NamedResult &each : m_result.thresholds) {
        if (each.result.verdict != Verdict::Passed)
            m_blocks.append(
                ReportParagraph{each.result.reason + QLatin1Char('.'), each.result.verdict});
    }
    const Search &search = *m_case.search();
    const QString unit = search.settings.unit;
    ReportTable shots;
    shots.headings = QStringList{QStringLiteral("shot"), QStringLiteral("looks for"),
                                 search.parameter, QStringLiteral("outcome")};
    for (const ShotResult &each : m_result.shots.mid(0, kMostRows)) {
        const ShotRecord &record = recordOf(each);
        const bool isPickUp = record.shot.role == Shot::PickUp;
        const QString outcome = !record.error.isEmpty() ? record.error
            : !record.skipped.isEmpty()                 ? record.skipped
            : isPickUp
            ? QString(each.operated ? QStringLiteral("picked up") : QStringLiteral("quiet"))
            : each.operated ? QStringLiteral("held")
                            : QStringLiteral("dropped off");
        shots.rows.append({QString::number(record.shot.point + 1),
                           isPickUp ? QStringLiteral("pick-up") : QStringLiteral("drop-off"),
                           valueText(record.shot.values.value(search.parameter), unit), outcome});
    }
    heading(QStringLiteral("Shots"));
    m_blocks.append(shots);
}

/// What assessment number \a assessment has measured over the values of the sweep.
CharacteristicPicture CaseReport::characteristicOf(int assessment) const
{
    const Sweep &sweep = *m_case.sweep();
    CharacteristicPicture picture;
    picture.valueTitle = sweep.parameter;
    picture.timeTitle = m_case.assessments[assessment].name + QStringLiteral(" (s)");
    const auto scale = sweep.isLogarithmic ? Axis::Scale::Logarithmic : Axis::Scale::Linear;
    picture.valueScale = scale;
    picture.timeScale = scale;
    for (const ShotResult &shot : m_result.shots) {
        if (assessment >= shot.results.size() || shot.skipped)
            continue;
        const AssessmentResult &result = shot.results[assessment].result;
        picture.points.append({recordOf(shot).shot.values.value(sweep.parameter), result.actual,
                               result.verdict, QString()});
    }
    const PlannedAssessment::Time *time = m_case.assessments[assessment].alongCharacteristic();
    if (!time || time->of != sweep.parameter)
        return picture;
    const Expectation expectation = *time->characteristic;
    const auto edge = [expectation](auto pick) -> Curve {
        return [expectation, pick](double value) -> std::optional<double> {
            const ExpectedTime expected = expectedTime(expectation, value);
            const std::optional<double> at = pick(expected.band);
            const bool isThere = expected.trip != ExpectedTime::None && at && std::isfinite(*at);
            return isThere ? at : std::nullopt;
        };
    };
    picture.nominal = edge([](const Band &band) { return band.nominal; });
    picture.least = edge([](const Band &band) { return std::optional<double>(band.lowest); });
    picture.most = edge([](const Band &band) { return std::optional<double>(band.highest); });
    if (const auto *inverse = std::get_if<InverseTime>(&expectation.characteristic))
        picture.pickUp = inverse->pickUp;
    else if (const auto *definite = std::get_if<DefiniteTime>(&expectation.characteristic))
        picture.pickUp = definite->pickUp;
    return picture;
}

void CaseReport::writeCharacteristics()
{
    constexpr QSize kSize(kReportWidth, 400);
    int drawn = 0;
    for (int i = 0; i < m_case.assessments.size() && drawn < kMostCharacteristics; ++i) {
        const auto *time = std::get_if<PlannedAssessment::Time>(&m_case.assessments[i].what);
        if (!time || time->fixed.coming == TimeAssessment::MustNot)
            continue;
        ++drawn;
        const CharacteristicPicture picture = characteristicOf(i);
        const QString caption = picture.nominal
            ? QStringLiteral("%1 over %2: measured points, the nominal curve and what is allowed "
                             "around it.")
            : QStringLiteral("%1 over %2: measured points.");
        m_blocks.append(ReportPictures{
            {kSize,
             [picture](QPainter &painter, const QRectF &area) { paint(painter, area, picture); },
             caption.arg(m_case.assessments[i].name, picture.valueTitle)}});
    }
}

/// The first one of the worst verdict; of a search the last one that found the pick-up.
const ShotResult *CaseReport::shownShot() const
{
    const ShotResult *shown = nullptr;
    for (const ShotResult &each : m_result.shots) {
        const ShotRecord &record = recordOf(each);
        if (!record.skipped.isEmpty() || record.observation.changes.isEmpty())
            continue;
        const bool isBetter = m_case.search() ? record.shot.role == Shot::PickUp && each.operated
                                              : shown && each.verdict > shown->verdict;
        if (!shown || isBetter)
            shown = &each;
    }
    return shown;
}

void CaseReport::writePhasors(const Sequence &sequence)
{
    constexpr QSize kSize(222, 470); // three in a row
    ReportPictures pictures;
    for (int step = 0; step < sequence.steps.size(); ++step) {
        const PhasorPicture picture(sequence, step);
        pictures.append(
            {kSize,
             [picture](QPainter &painter, const QRectF &area) { picture.paint(painter, area); },
             QStringLiteral("Step %1: %2").arg(step).arg(sequence.nameOf(step))});
    }
    m_blocks.append(pictures);
}

void CaseReport::writeWaveforms(const Sequence &sequence, const ShotRecord &shot)
{
    const auto length = shot.end.totalTime;
    const PlotWindow window = eventWindow(sequence, shot.observation, length);
    WaveformTexts texts;
    texts.tellsStart = false;
    texts.steps = m_case.stepNames;
    for (auto each = m_case.names.inputs.begin(); each != m_case.names.inputs.end(); ++each)
        texts.inputs[each.key()] = each.value();
    const auto add = [&](const PlotData &data, const QString &title, const QString &caption,
                         double share) {
        texts.title = title;
        const auto picture = std::make_shared<WaveformPicture>(data, texts);
        const QSize size(kReportWidth, int(picture->heightFor(kReportWidth) * share));
        m_blocks.append(ReportPictures{
            {size,
             [picture](QPainter &painter, const QRectF &area) { picture->paint(painter, area); },
             caption}});
    };
    const PlotData states = playedStates(sequence, m_case.names, shot.observation, length);
    if (!states.goose.isEmpty())
        add(states, QStringLiteral("Inputs and outputs"),
            QStringLiteral("States of the whole shot, as recorded."), 1);
    const PlotData curves = computedWaveform(sequence, shot.observation, length, window);
    if (!curves.panels.isEmpty())
        add(curves, QStringLiteral("Voltages and currents"),
            QStringLiteral("Computed from the sequence and the recorded changes of steps, with "
                           "phases that go on through them."),
            0.75);
}

void CaseReport::writeInputs(const ShotRecord &shot)
{
    if (shot.observation.inputs.isEmpty() && shot.observation.inputsLost == 0)
        return;
    ReportTable table;
    table.headings =
        QStringList{QStringLiteral("time, s"), QStringLiteral("input"), QStringLiteral("state")};
    for (const statusreply::Input &each : shot.observation.inputs.mid(0, kMostRows)) {
        const bool isTrigger = each.kind == statusreply::Input::Trigger;
        table.rows.append({secondsText(each.time),
                           isTrigger ? QStringLiteral("trigger") : m_case.names.input(each.channel),
                           isTrigger                                 ? QString()
                               : each.kind == statusreply::Input::On ? QStringLiteral("on")
                                                                     : QStringLiteral("off")});
    }
    heading(QStringLiteral("Inputs"));
    m_blocks.append(table);
    const auto more = qint64(shot.observation.inputs.size()) - kMostRows;
    if (more > 0)
        paragraph(QStringLiteral("and %1 more").arg(more));
    if (shot.observation.inputsLost > 0)
        paragraph(QStringLiteral("%1 later ones were not kept by the board.")
                      .arg(shot.observation.inputsLost));
}

QString causeText(const statusreply::Change &change, const SignalNames &names)
{
    const QString causes[] = {QStringLiteral("start"),   QStringLiteral("time"),
                              QStringLiteral("trigger"), QStringLiteral("binary input"),
                              QStringLiteral("stop"),    QStringLiteral("ring"),
                              QStringLiteral("limit")};
    if (change.cause == statusreply::Change::BinaryInput
        && change.channel != statusreply::kNoChannel)
        return names.input(change.channel);
    return causes[change.cause];
}

void CaseReport::writeChanges(const ShotRecord &shot)
{
    statusreply::Changes changes;
    changes.last = shot.observation.changes;
    ReportTable table;
    table.headings =
        QStringList{QStringLiteral("time, s"), QStringLiteral("left"), QStringLiteral("entered"),
                    QStringLiteral("because of"), QStringLiteral("time in the step left")};
    for (int i = 0; i < changes.last.size() && i < kMostRows; ++i) {
        const statusreply::Change &each = changes.last[i];
        const auto time = changes.timeInStep(i);
        table.rows.append(
            {secondsText(each.causeTime),
             each.left == statusreply::kNoStep ? QString() : stepName(each.left),
             stepName(each.entered), causeText(each, m_case.names),
             time ? valueText(std::chrono::duration<double>(*time).count(), QStringLiteral("s"))
                  : QString()});
    }
    heading(QStringLiteral("Changes of steps"));
    if (shot.observation.changesLost > 0)
        paragraph(QStringLiteral("%1 earlier ones were not kept by the board.")
                      .arg(shot.observation.changesLost));
    m_blocks.append(table);
}

void CaseReport::writeShot(const ShotResult &shown)
{
    const ShotRecord &shot = recordOf(shown);
    const QString which = shotText(m_case, shot.shot);
    heading(which.isEmpty() ? QStringLiteral("What was played")
                            : QStringLiteral("One shot in full: ") + which);
    if (!which.isEmpty())
        paragraph(QStringLiteral("Its values: %1.").arg(valuesText(shot.shot.values)));
    if (!which.isEmpty() && m_test.record.played.isEmpty())
        paragraph(QStringLiteral("Stood in for the device: %1.").arg(standInText(shot.shot)));
    if (!shot.error.isEmpty())
        m_blocks.append(ReportParagraph{shot.error + QLatin1Char('.'), Verdict::NotMeasured});
    if (!shot.capture.isEmpty())
        paragraph(QStringLiteral("Its frames are in %1.").arg(shot.capture));
    writeChanges(shot);
    writeInputs(shot);
    const Expected<Sequence> sequence = m_test.plan->sequence(m_result.number, shot.shot.values);
    if (!sequence)
        return;
    writeWaveforms(*sequence, shot);
    heading(QStringLiteral("Steps"));
    writePhasors(*sequence);
}

void CaseReport::write()
{
    m_blocks.append(
        ReportHeading{2, QStringLiteral("%1  %2").arg(m_result.number + 1).arg(m_case.name),
                      m_result.verdict, outcomeName(m_result.verdict, m_result.skipped)});
    if (!m_case.description.isEmpty())
        paragraph(m_case.description);
    const ShotResult *const shown = shownShot();
    writeFacts(shown);
    if (m_result.skipped) {
        m_blocks.append(ReportParagraph{m_result.reason + QLatin1Char('.'), m_result.verdict});
        return;
    }
    if (m_case.search()) {
        writeSearch();
    } else {
        if (m_case.sweep())
            writeCharacteristics();
        writeAssessments();
        writeReasons();
        writeSpreads();
    }
    if (shown)
        writeShot(*shown);
}

/// What a passed case has measured, in a few words.
QString measuredText(const TestCase &testCase, const CaseResult &result)
{
    QStringList parts;
    for (const NamedResult &each : result.thresholds)
        parts += QStringLiteral("%1 %2").arg(each.name, measuredText(each.result));
    if (testCase.sweep() || testCase.search())
        return testCase.sweep() ? QStringLiteral("%1 shots").arg(result.shots.size())
                                : parts.join(QStringLiteral(", "));
    for (const Spread &each : result.spreads)
        parts += QStringLiteral("%1 %2 on average").arg(each.name, valueText(each.mean, each.unit));
    if (!result.spreads.isEmpty())
        return parts.join(QStringLiteral(", "));
    for (const NamedResult &each : result.shots.first().results) {
        if (each.result.actual)
            parts += QStringLiteral("%1 %2").arg(each.name, measuredText(each.result));
    }
    return parts.isEmpty() ? QStringLiteral("as expected") : parts.join(QStringLiteral(", "));
}

QString withDigest(const QString &path, const QByteArray &sha256)
{
    return QStringLiteral("%1 (SHA-256 %2…)")
        .arg(QFileInfo(path).fileName(), QString::fromLatin1(sha256.left(kDigestShown)));
}

/// What was played, by what and against what.
ReportTable testFacts(const RecordedTest &test)
{
    const TestRecord &record = test.record;
    ReportTable facts;
    facts.rows.append({QStringLiteral("board"), record.board});
    if (!record.played.isEmpty())
        facts.rows.append({QStringLiteral("played"), record.played});
    facts.rows.append({QStringLiteral("program"), record.program});
    facts.rows.append({QStringLiteral("configuration"),
                       withDigest(record.configuration.path, record.configuration.sha256)});
    for (int i = 0; i < record.sources.size() && i < kMostRows; ++i)
        facts.rows.append({i == 0 ? QStringLiteral("plan") : QStringLiteral("sequence"),
                           withDigest(record.sources[i].path, record.sources[i].sha256)});
    return facts;
}

ReportTable caseTable(const TestPlan &plan, const TestResult &result)
{
    ReportTable table;
    table.headings = QStringList{QStringLiteral("no."), QStringLiteral("case"),
                                 QStringLiteral("verdict"), QStringLiteral("result")};
    for (const CaseResult &each : result.cases) {
        const TestCase &testCase = plan.cases[each.number];
        table.rows.append({QString::number(each.number + 1), testCase.name,
                           outcomeCell(each.verdict, each.skipped),
                           each.reason.isEmpty() ? measuredText(testCase, each) : each.reason});
    }
    return table;
}

} // namespace

Report reportOf(const RecordedTest &test, const TestResult &result)
{
    const TestPlan &plan = *test.plan;
    Report report;
    report.title = plan.title;
    report.footer = test.record.played.isEmpty()
        ? plan.title
        : plan.title + QStringLiteral(", ") + test.record.played;
    QVector<ReportBlock> &blocks = report.blocks;
    blocks.append(ReportHeading{1, plan.title, result.verdict, verdictName(result.verdict)});
    if (!plan.description.isEmpty())
        blocks.append(ReportParagraph{plan.description, {}});
    blocks.append(ReportParagraph{totalText(result) + QLatin1Char('.'), {}});
    if (test.record.interrupted)
        blocks.append(ReportParagraph{QStringLiteral("The test was broken off; what had been "
                                                     "played until then is here."),
                                      Verdict::Doubtful});
    blocks.append(caseTable(plan, result));
    if (!plan.relay.isEmpty()) {
        ReportTable relay;
        for (const RelayFact &each : plan.relay)
            relay.rows.append({each.name, each.text});
        blocks.append(ReportHeading{3, QStringLiteral("Device under test"), {}, {}});
        blocks.append(relay);
    }
    blocks.append(ReportHeading{3, QStringLiteral("Test"), {}, {}});
    blocks.append(testFacts(test));
    for (const CaseResult &each : result.cases)
        CaseReport(test, each, blocks).write();
    return report;
}

} // namespace workbench
