#include "benchmarks/generatedconfiguration.h"

#include <QString>

#include <array>

namespace {

constexpr std::array<const char *, 22> kChannels{
    "DelayTRtg", "Ia1", "Ia2", "Ib1", "Ib2", "Ic1", "Ic2", "In1", "In2", "Va1", "Va2",
    "Vb1",       "Vb2", "Vc1", "Vc2", "Vn1", "Vn2", "Ux1", "Ux2", "Uy1", "Uy2", "Uz1"};
constexpr std::array kEntryTypes{1, 13, 3, 7, 5, 2, 15, 16};

QString svStream(int number)
{
    QString xml = QStringLiteral("  <in_smv mac=\"01-0C-CD-04-00-%1\" vlan=\"%2\" appid=\"%3\" "
                                 "priority=\"4\" svId=\"Bay%4MU/LLN0.smvcb0\" confRev=\"1\" "
                                 "portindex=\"%5\" chNums=\"22\">\n")
                      .arg(number, 2, 16, QLatin1Char('0'))
                      .arg(number, 0, 16)
                      .arg(16384 + number)
                      .arg(number)
                      .arg(number % 8 + 1);
    for (const char *channel : kChannels)
        xml += QStringLiteral("    <chninfo channel=\"%1\" quality=\"00000000\" delayt=\"750\"/>\n")
                   .arg(QLatin1String(channel));
    return xml + QStringLiteral("  </in_smv>\n");
}

QString gooseStream(int number)
{
    QString xml = QStringLiteral("  <in_goose portindex=\"%1\">\n"
                                 "    <goose mac=\"01-0C-CD-01-00-0%2\" priority=\"4\" vLan=\"0\" "
                                 "appid=\"%3\" gcRef=\"Bay%2RPIT/LLN0$GO$gocb%2\" confRev=\"1\" "
                                 "t0=\"5000\" datSet=\"Bay%2RPIT/LLN0$dsGOOSE%2\" "
                                 "goId=\"Bay%2RPIT/LLN0$GO$gocb%2\" datCount=\"32\">\n")
                      .arg(number + 1)
                      .arg(number)
                      .arg(number + 1);
    for (int i = 0; i < 32; ++i)
        xml += QStringLiteral("      <data gstype_tp=\"%1\"/>\n")
                   .arg(kEntryTypes[std::size_t(i) % kEntryTypes.size()]);
    xml += QStringLiteral("    </goose>\n");
    if (number < 4)
        xml += QStringLiteral("    <mapinfo Which=\"%1\" Pos=\"1\"/>\n").arg(number + 1);
    return xml + QStringLiteral("  </in_goose>\n");
}

QString subscription(int number)
{
    return QStringLiteral("  <goose appid=\"%1\" datCount=\"16\" portIndex=\"%2\">\n"
                          "    <mapinfo Which=\"1\" Pos=\"%3\"/>\n"
                          "    <mapinfo Which=\"2\" Pos=\"9\"/>\n"
                          "  </goose>\n")
        .arg(4096 + number)
        .arg(number % 5 + 1)
        .arg(number % 8 + 1);
}

} // namespace

QByteArray generatedConfiguration(const ConfigurationSize &size)
{
    QString xml = QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ied>\n");
    for (int i = 0; i < size.svStreams; ++i)
        xml += svStream(i);
    for (int i = 0; i < size.gooseStreams; ++i)
        xml += gooseStream(i);
    for (int i = 0; i < size.subscriptions; ++i)
        xml += subscription(i);
    return (xml + QStringLiteral("</ied>\n")).toUtf8();
}
