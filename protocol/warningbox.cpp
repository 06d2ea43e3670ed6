#include "protocol/warningbox.h"

#include "protocol/textcodec.h"

#include <QApplication>
#include <QDebug>
#include <QMessageBox>
#include <QThread>

namespace {

// Both texts are stored in GBK, as every text of the test set is; in UTF-8 they read
// "提示" and "GOOSE 通道数据类型未定义或不支持!".
constexpr char kTitle[] = "\xcc\xe1\xca\xbe";
constexpr char kText[] =
    "GOOSE \xcd\xa8\xb5\xc0\xca\xfd\xbe\xdd\xc0\xe0\xd0\xcd\xce\xb4\xb6\xa8\xd2"
    "\xe5\xbb\xf2\xb2\xbb\xd6\xa7\xb3\xd6!";

/// A box without a widget application, or from another thread than its own, would abort the
/// process.
bool canShowBox()
{
    const auto *application = qobject_cast<QApplication *>(QCoreApplication::instance());
    return application && application->thread() == QThread::currentThread();
}

} // namespace

void warnUnsupportedGooseType()
{
    const QString text = textcodec::fromTr(kText);
    if (canShowBox())
        QMessageBox::information(nullptr, textcodec::fromCString(kTitle), text);
    else
        qDebug().noquote() << text;
}
