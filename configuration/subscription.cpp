#include "configuration/streamreaders.h"

#include <set>

namespace testconfiguration {

namespace {

constexpr AttributeRule kLightPort{QLatin1String("portIndex"), AttributeRule::Decimal, kLeastInt,
                                   kMostInt};
constexpr AttributeRule kEntryCount{QLatin1String("datCount"), AttributeRule::Decimal, kLeastInt,
                                    kMostInt};
constexpr QLatin1String kMappingTag("mapinfo");

/// Reads the `mapinfo` children of one subscription, each of which maps an entry onto the next
/// logic channel.
class Mapper
{
public:
    Mapper(Goose_command &command, int entries, SubscriptionNumbers numbers, RemarkList &remarks)
        : m_command(command)
        , m_entries(entries)
        , m_numbers(numbers)
        , m_remarks(remarks)
    { }

    void take(const Element &element);
    [[nodiscard]] QVector<MappedEntry> mapped() const { return m_mapped; }

private:
    [[nodiscard]] bool isMeant(const Element &element, ElementReader &in);
    void checkOrder(const Element &element, int position);

    Goose_command &m_command;
    const int m_entries;
    SubscriptionNumbers m_numbers;
    RemarkList &m_remarks;
    QVector<MappedEntry> m_mapped;
    std::set<int> m_positions; ///< only when checking
};

void Mapper::take(const Element &element)
{
    ElementReader in(element, QLatin1String("goose/mapinfo"), m_remarks);
    const bool isMapped = isMeant(element, in);
    const int position = in.decimal(kPos);
    in.finish({});
    if (!isMapped)
        return;
    if (position < 1 || position > m_entries) {
        m_remarks.fail(element,
                       QStringLiteral("ignored, Pos %1 is outside 1 to datCount %2")
                           .arg(position)
                           .arg(m_entries));
        return;
    }
    if (m_numbers.logicChannelsUsedUp && m_numbers.logicChannel == 0) {
        m_remarks.fail(
            element,
            QStringLiteral("ignored, Pos %1 needs a logic channel above 255").arg(position));
        return;
    }
    if (m_remarks.isChecking())
        checkOrder(element, position);
    m_mapped.append({position, m_numbers.logicChannel});
    m_numbers.logicChannelsUsedUp = ++m_numbers.logicChannel == 0;
    m_command.setStart_Module(position);
}

/// A Which above the binary outputs switches the element off; what it names otherwise has no
/// effect.
bool Mapper::isMeant(const Element &element, ElementReader &in)
{
    const int which = in.decimal(kWhich);
    if (m_remarks.isChecking() && which > limits::kBinaryOutputs)
        m_remarks.fail(
            element,
            QStringLiteral("skipped, Which %1 is above %2").arg(which).arg(limits::kBinaryOutputs),
            kWhich.name);
    const QString *const text = element.attribute(kWhich.name);
    if (m_remarks.isChecking() && which < 1 && text && !text->isEmpty())
        m_remarks.warn(
            element,
            QStringLiteral("Which is %1; usual is 1 to %2").arg(which).arg(limits::kBinaryOutputs),
            kWhich.name);
    return which <= limits::kBinaryOutputs;
}

/// The board learns which entries are mapped, but not in which order or how often.
void Mapper::checkOrder(const Element &element, int position)
{
    if (m_positions.count(position) != 0)
        m_remarks.fail(
            element,
            QStringLiteral("Pos %1 is mapped twice, which moves all further logic channels")
                .arg(position),
            kPos.name);
    else if (!m_positions.empty() && position < *m_positions.rbegin())
        m_remarks.warn(element,
                       QStringLiteral("Pos %1 is listed after Pos %2, but gets the lower logic "
                                      "channel: the board numbers them in the order of the dataset")
                           .arg(position)
                           .arg(*m_positions.rbegin()),
                       kPos.name);
    m_positions.insert(position);
}

} // namespace

std::optional<GooseSubscription> readSubscription(const Element &element,
                                                  SubscriptionNumbers numbers, RemarkList &remarks)
{
    const auto refuse = [&](const QString &text) {
        remarks.fail(element, text);
        return std::nullopt;
    };
    ElementReader in(element, QLatin1String("goose"), remarks);
    const int port = in.decimal(kLightPort);
    const int entries = in.decimal(kEntryCount);
    const QString appId = in.text(kAppId);
    in.finish({kMappingTag});
    if (port < 1 || port > limits::kLightPorts)
        return refuse(refusal(kLightPort.name, port, limits::kLightPorts, 1));
    if (entries < 0 || entries > limits::kGooseEntries)
        return refuse(refusal(kEntryCount.name, entries, limits::kGooseEntries));
    quint8 &lightGroup = numbers.lightGroup[port - 1];
    if (lightGroup > limits::kLightGroups)
        return refuse(QStringLiteral("refused, light group %1 of port %2 is above %3")
                          .arg(lightGroup)
                          .arg(port)
                          .arg(limits::kLightGroups));

    Goose_command command;
    command.setAppId(appId);
    command.setChanelNum(entries);
    command.setLightPort(port);
    command.setCurrentLigthGROUP(lightGroup);
    command.setLogicCH(numbers.logicChannel);
    Mapper mapper(command, entries, numbers, remarks);
    for (Element child = element.firstChild(); !child.isNull(); child = child.nextSibling()) {
        if (child.hasTag(kMappingTag))
            mapper.take(child);
    }
    if (mapper.mapped().isEmpty()) {
        if (remarks.isChecking())
            remarks.fail(element, QStringLiteral("skipped, this goose maps no entry"));
        return std::nullopt;
    }
    command.setGroupNUM(numbers.group);
    return GooseSubscription{command, numbers.group++, port, lightGroup++, mapper.mapped()};
}

} // namespace testconfiguration
