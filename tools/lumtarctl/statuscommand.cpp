#include "tools/lumtarctl/statuscommand.h"

#include "protocol/statusreply.h"
#include "tools/terminal/terminal.h"
#include "workbench/boardsession.h"
#include "workbench/sequencetext.h"
#include "workbench/statusjson.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QVector>

using namespace workbench;
using statusreply::Changes;
using statusreply::Inputs;
using statusreply::State;

namespace {

/// What a status says.
struct Reading
{
    int which;
    QByteArray payload;
    std::optional<State> state;
    std::optional<Changes> changes;
    std::optional<Inputs> inputs;

    bool isUnderstood() const { return state || changes || inputs; }
};

bool isInputs(int which)
{
    return which >= statusreply::kInputs && which < statusreply::kInputs + statusreply::kInputParts;
}

Expected<Reading> read(BoardSession &session, int which, bool isRaw)
{
    return session.readStatus(which).map([&](const QByteArray &payload) {
        Reading reading{which, payload, {}, {}, {}};
        if (which == statusreply::kState && !isRaw)
            reading.state = statusreply::decodeState(payload);
        if (which == statusreply::kChanges && !isRaw)
            reading.changes = statusreply::decodeChanges(payload);
        if (isInputs(which) && !isRaw)
            reading.inputs = statusreply::decodeInputs(payload);
        return reading;
    });
}

/// What is asked for; of a board that is not understood, nothing more than the first.
Expected<QVector<Reading>> readAll(BoardSession &session, const StatusOrder &order)
{
    QVector<int> numbers = {order.which.value_or(statusreply::kState)};
    if (!order.which && !order.isRaw)
        numbers << statusreply::kChanges;
    QVector<Reading> readings;
    for (const int which : numbers) {
        const Expected<Reading> reading = read(session, which, order.isRaw);
        if (!reading)
            return tl::unexpected<Failure>(reading.error());
        readings << *reading;
        if (!reading->isUnderstood())
            break;
    }
    return readings;
}

QString bytesText(const Reading &reading, bool isRaw)
{
    const bool isKnown = isRaw || reading.which >= statusreply::kInputs + statusreply::kInputParts;
    return QStringLiteral("status %1, %2 bytes%3: %4")
        .arg(reading.which)
        .arg(reading.payload.size())
        .arg(isKnown ? QLatin1String() : QLatin1String(" of a layout that is not known here"),
             QString::fromLatin1(reading.payload.toHex(' ')));
}

void showText(const QVector<Reading> &readings, const StatusOrder &order)
{
    for (const Reading &each : readings) {
        if (each.state) {
            sayWrapped(stateText(*each.state, order.sequence)
                       + activeText(*each.state, order.sequence));
            sayWrapped(concerns(*each.state), Tone::Doubtful);
        } else if (each.changes) {
            sayWrapped(each.changes->total == 0
                           ? QStringLiteral("no changes of steps")
                           : changeTexts(*each.changes, order.sequence, outputWidth()));
        } else if (each.inputs) {
            sayWrapped(inputTexts(*each.inputs, order.sequence, outputWidth()));
        } else {
            say(bytesText(each, order.isRaw));
        }
    }
}

void showJson(const QVector<Reading> &readings, const StatusOrder &order)
{
    QJsonObject result;
    for (const Reading &each : readings) {
        if (each.state)
            result[QStringLiteral("state")] = toJson(*each.state, order.sequence);
        if (each.changes)
            result[QStringLiteral("changes")] = toJson(*each.changes, order.sequence);
        if (each.inputs)
            result[QStringLiteral("inputs")] = toJson(*each.inputs);
        if (!each.isUnderstood()) {
            result[QStringLiteral("which")] = each.which;
            result[QStringLiteral("bytes")] = QString::fromLatin1(each.payload.toHex());
        }
    }
    say(QString::fromUtf8(QJsonDocument(result).toJson()).trimmed());
}

} // namespace

Expected<int> showStatus(const Endpoint &endpoint, const StatusOrder &order)
{
    BoardSession session;
    return session.open(endpoint.board, endpoint.localPort)
        .and_then([&] { return readAll(session, order); })
        .map([&](const QVector<Reading> &readings) {
            (order.isJson ? showJson : showText)(readings, order);
            return 0;
        });
}
