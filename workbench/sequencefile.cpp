#include "workbench/sequencefile.h"

#include "workbench/sequencekeys.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>

namespace workbench {

namespace {

constexpr double kMilliseconds = 1000.0; // in a second

// Writing. QJsonObject would sort the keys; a reader wants them in the order of the documentation.

QString member(const QString &name, const QString &value)
{
    return QLatin1Char('"') + name + QLatin1String("\": ") + value;
}

QString quoted(const QString &text)
{
    const QByteArray list = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(list.mid(1).chopped(1));
}

QString number(double value)
{
    return QString::number(value, 'g', QLocale::FloatingPointShortest);
}

QString line(const QStringList &members)
{
    return QStringLiteral("{ ") + members.join(QStringLiteral(", ")) + QStringLiteral(" }");
}

/// One below the other, between \a open and \a close.
QString block(QChar open, const QStringList &items, QChar close)
{
    if (items.isEmpty())
        return QString(open) + close;
    QString inside = QLatin1Char('\n') + items.join(QStringLiteral(",\n"));
    inside.replace(QLatin1Char('\n'), QLatin1String("\n  "));
    return open + inside + QLatin1Char('\n') + close;
}

QString object(const QStringList &members)
{
    return block(QLatin1Char('{'), members, QLatin1Char('}'));
}

QStringList settingsOf(const Sequence &sequence)
{
    const Sequence defaults;
    QStringList members;
    if (sequence.nominalFrequency != defaults.nominalFrequency)
        members += member(key::nominalFrequency, number(sequence.nominalFrequency));
    if (sequence.samplesPerCycle != defaults.samplesPerCycle)
        members += member(key::samplesPerCycle, number(sequence.samplesPerCycle));
    if (sequence.resolution != defaults.resolution)
        members += member(key::svResolution, quoted(resolutions[int(sequence.resolution)]));
    if (sequence.amplitudesArePeak)
        members += member(key::amplitudes, quoted(amplitudeKinds[1]));
    if (sequence.dualAD)
        members += member(key::dualAD, QStringLiteral("true"));
    if (sequence.ratios)
        members += member(key::ratios,
                          line({member(key::voltage, number(sequence.ratios->voltage)),
                                member(key::current, number(sequence.ratios->current))}));
    return members;
}

QString text(const QMap<int, QString> &names)
{
    QStringList members;
    for (auto each = names.begin(); each != names.end(); ++each)
        members += member(QString::number(each.key()), quoted(each.value()));
    return line(members);
}

QStringList namesOf(const Sequence &sequence)
{
    QStringList members;
    if (!sequence.signalNames.inputs.isEmpty())
        members += member(key::binaryInputs, text(sequence.signalNames.inputs));
    if (!sequence.signalNames.outputs.isEmpty())
        members += member(key::binaryOutputs, text(sequence.signalNames.outputs));
    return members;
}

QString text(const SequenceOutput &output)
{
    QStringList members = {member(key::amplitude, number(output.amplitude)),
                           member(key::phase, number(output.phase))};
    if (output.frequency)
        members += member(key::frequency, number(*output.frequency));
    if (output.phaseJump)
        members += member(key::phaseJump, number(*output.phaseJump));
    return line(members);
}

QString outputsOf(const SequenceStep &step)
{
    QStringList members;
    for (int i = 0; i < outputNames().size(); ++i) {
        if (const auto &output = step.outputs[std::size_t(i)])
            members += member(outputNames()[i], text(*output));
    }
    return object(members);
}

QString statesOf(const SequenceStep &step)
{
    QStringList states;
    for (const bool state : step.binaryOutputs)
        states += QLatin1String(state ? "true" : "false");
    return QLatin1Char('[') + states.join(QStringLiteral(", ")) + QLatin1Char(']');
}

QString text(const SequenceStep &step, const Sequence &sequence)
{
    const auto named = [&sequence](int number) { return quoted(sequence.nameOf(number)); };
    QStringList members = {member(key::name, quoted(step.name)),
                           member(key::time, number(double(step.time.count()) / kMilliseconds)),
                           member(key::onTimeout, named(step.onTimeout))};
    if (step.onBinaryInput)
        members += member(key::onBinaryInput, named(*step.onBinaryInput));
    if (step.onTrigger)
        members += member(key::onTrigger,
                          line({member(key::trigger, number(step.onTrigger->trigger)),
                                member(key::goTo, named(step.onTrigger->goTo))}));
    if (step.conditionFlags != 0)
        members += member(key::conditionFlags, number(step.conditionFlags));
    if (step.stepOption != 0)
        members += member(key::stepOption, number(step.stepOption));
    if (step.binaryOutputs != SequenceStep().binaryOutputs)
        members += member(key::binaryOutputs, statesOf(step));
    members += member(key::outputs, outputsOf(step));
    return object(members);
}

} // namespace

QByteArray toJson(const Sequence &sequence)
{
    QStringList members;
    if (!sequence.description.isEmpty())
        members += member(key::description, quoted(sequence.description));
    const QStringList names = namesOf(sequence);
    if (!names.isEmpty())
        members += member(key::names, object(names));
    const QStringList settings = settingsOf(sequence);
    if (!settings.isEmpty())
        members += member(key::settings, object(settings));
    QStringList steps;
    for (const SequenceStep &step : sequence.steps)
        steps += text(step, sequence);
    members += member(key::steps, block(QLatin1Char('['), steps, QLatin1Char(']')));
    return object(members).toUtf8() + '\n';
}

Expected<void> writeSequence(const Sequence &sequence, const QString &path)
{
    QSaveFile file(path);
    const QByteArray json = toJson(sequence);
    if (!file.open(QIODevice::WriteOnly) || file.write(json) != json.size() || !file.commit())
        return failure(Failure::Input, path + QStringLiteral(": ") + file.errorString());
    return {};
}

} // namespace workbench
