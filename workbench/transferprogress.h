/// \file
/// How far the loading and starting of a test has come.
#pragma once

#include "configuration/testconfiguration.h"
#include "workbench/sequence.h"

#include <QString>
#include <QVector>

namespace workbench {

/// What is to be sent, exchange by exchange, and where the sending stands.
class TransferProgress
{
public:
    /// Of the loading of \a configuration, which has no errors, then of executing \a sequence.
    TransferProgress(const testconfiguration::CheckedConfiguration &configuration,
                     const Sequence &sequence);

    /// A datagram has been sent; \a again: for another try. Returns whether that brings news:
    /// another element has begun.
    bool advance(bool again);
    /// The last exchange is done, too.
    void finish();

    [[nodiscard]] int total() const { return m_total; } ///< exchanges
    [[nodiscard]] int done() const { return m_done; } ///< exchanges
    [[nodiscard]] const QString &element() const { return m_text; } ///< what is being sent

private:
    /// A reset, a stream, a step ...
    struct Element
    {
        QString text;
        int exchanges;
    };

    void addConfiguration(const testconfiguration::CheckedConfiguration &configuration);
    void addSequence(const testconfiguration::CheckedConfiguration &configuration,
                     const Sequence &sequence);

    QVector<Element> m_elements; ///< in the order in which they are sent
    int m_total = 0;
    int m_done = -1; ///< -1: nothing has been sent
    int m_element = 0; ///< the current one
    int m_left = 0; ///< exchanges of it that have not begun
    QString m_text;
};

} // namespace workbench
