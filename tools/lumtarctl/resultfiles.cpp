#include "tools/lumtarctl/resultfiles.h"

#include "workbench/drawing.h"
#include "workbench/reporthtml.h"
#include "workbench/reportpdf.h"
#include "workbench/resultdata.h"
#include "workbench/testreport.h"

#include <QCommandLineParser>
#include <QFileInfo>

#include <algorithm>

using namespace workbench;

namespace {

tl::unexpected<Failure> refusal(const QString &path, const QString &reason)
{
    return failure(Failure::Input, QStringLiteral("%1: %2").arg(path, reason));
}

QByteArray html(const RecordedTest &test, const TestResult &result)
{
    return toHtml(reportOf(test, result));
}

QByteArray pdf(const RecordedTest &test, const TestResult &result)
{
    return toPdf(reportOf(test, result));
}

} // namespace

const QVector<ResultFiles::Kind> &ResultFiles::kinds()
{
    static const QVector<Kind> all{
        {QStringLiteral("html"), QStringLiteral("Report for a browser to write."), html, true},
        {QStringLiteral("pdf"), QStringLiteral("Report on pages of paper to write."), pdf, true},
        {QStringLiteral("junit"), QStringLiteral("Result for a build server to write (XML)."),
         toResultJUnit, false},
        {QStringLiteral("json"), QStringLiteral("Result for other programs to write."),
         toResultJson, false}};
    return all;
}

const QStringList &ResultFiles::optionNames()
{
    static const QStringList names = [] {
        QStringList all;
        for (const Kind &each : kinds())
            all += each.option;
        return all;
    }();
    return names;
}

void ResultFiles::addOptions(QCommandLineParser &parser)
{
    for (const Kind &each : kinds())
        parser.addOption({each.option, each.description, QStringLiteral("FILE")});
}

Expected<ResultFiles> ResultFiles::open(const QCommandLineParser &options)
{
    ResultFiles result;
    QStringList paths;
    for (const Kind &each : kinds()) {
        if (!options.isSet(each.option))
            continue;
        const QString path = options.value(each.option);
        const QFileInfo there(path);
        if (paths.contains(there.absoluteFilePath()))
            return refusal(path, QStringLiteral("two results cannot go into one file"));
        paths += there.absoluteFilePath();
        if (there.exists() && !there.isFile())
            return refusal(path, QStringLiteral("there is something that is no file"));
        auto file = std::make_unique<QSaveFile>(path);
        if (!file->open(QIODevice::WriteOnly))
            return refusal(path, file->errorString());
        if (each.hasPictures) {
            if (const Expected<void> fonts = checkFonts(); !fonts)
                return tl::unexpected<Failure>(fonts.error());
        }
        result.m_outputs.push_back({each.content, std::move(file)});
    }
    return result;
}

Expected<void> ResultFiles::write(const RecordedTest &test, const TestResult &result)
{
    Expected<void> outcome;
    for (const Output &each : m_outputs) {
        const QByteArray content = each.content(test, result);
        if (each.file->write(content) != content.size() || !each.file->commit())
            outcome = refusal(each.file->fileName(), each.file->errorString());
    }
    return outcome;
}
