// The warning box for an unsupported GOOSE data type, and where it must not appear.

#include "tests/testsupport.h"

#include "engine/lumtarengine.h"
#include "protocol/Protocal.h"

#include <QApplication>
#include <QMessageBox>
#include <QTest>
#include <QTimer>

#include <thread>

using namespace testsupport;

namespace {

const QString kText = QString::fromUtf8("GOOSE 通道数据类型未定义或不支持!");

/// The debug lines of setting an unsupported type.
QStringList linesOfUnsupportedType()
{
    const DebugLines caught;
    Message_goose frame;
    frame.setCountData_value(1);
    frame.setData_value(6, 0);
    return caught.lines();
}

} // namespace

class TestWarningBox : public QObject
{
    Q_OBJECT

public:
    QStringList linesWithoutWidgets;

private slots:
    void box()
    {
        const LumtarEngine engine; // installs the codec of the title and the text
        QStringList seen;
        QTimer::singleShot(0, this, [&seen] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (!box)
                return;
            seen = QStringList{box->windowTitle(), box->text(), QString::number(box->icon()),
                               box->parentWidget() ? QStringLiteral("child") : QString()};
            box->accept();
        });
        Message_goose frame;
        frame.setCountData_value(1);
        QCOMPARE(frame.setData_value(6, 0), 0);
        QCOMPARE(seen,
                 QStringList({QString::fromUtf8("提示"), kText,
                              QString::number(QMessageBox::Information), QString()}));
        const SetdataGoose entry = frame.Data_Vector.at(0);
        COMPARE_BYTES(entry.Data_tag + entry.Data_len + entry.Data_value, bytes("00 0000 00"));
    }

    void noBoxInAnotherThread()
    {
        QStringList lines;
        std::thread([&lines] { lines = linesOfUnsupportedType(); }).join();
        QCOMPARE(lines.size(), 1);
        QVERIFY(lines.first().contains(kText));
    }

    void noBoxWithoutWidgets()
    {
        QCOMPARE(linesWithoutWidgets.size(), 1);
        QVERIFY(linesWithoutWidgets.first().contains(kText));
    }
};

int main(int argc, char **argv)
{
    TestWarningBox test;
    {
        const QGuiApplication application(argc, argv); // has windows, but no widgets
        test.linesWithoutWidgets = linesOfUnsupportedType();
    }
    const QApplication application(argc, argv);
    return QTest::qExec(&test, argc, argv);
}

#include "tst_warningbox.moc"
