/// \file
/// COMTRADE, the exchange format of transient records: IEEE C37.111-1999 and IEC 60255-24:2013
/// (IEEE C37.111-2013). A record is a configuration file (.cfg) and a data file (.dat); this writes
/// both with binary samples at one rate.
#pragma once

#include "virtualboard/play/clocks.h"

#include <QByteArray>
#include <QString>
#include <QVector>

#include <optional>

namespace workbench {

/// A record, but for its samples.
struct Comtrade
{
    enum class Revision {
        Y1999, ///< samples of 16 bits (BINARY)
        Y2013, ///< samples of 32 bits (BINARY32)
    };
    /// A quantity is a * sample + b in the unit.
    struct Analog
    {
        QString id;
        QString phase; ///< "A", "B", "C", "N" or empty
        QString component; ///< what is observed
        QString unit; ///< "V", "A", "counts"
        double a = 1;
        double b = 0;
        double skew = 0; ///< of this channel's samples behind those of the first one, us
        qint32 min = 0; ///< of the samples
        qint32 max = 0;
        double primary = 1; ///< of the transformer's ratio
        double secondary = 1;
        bool isPrimary = true; ///< the quantity is that of the primary side
    };
    struct Digital
    {
        QString id;
        QString component;
    };

    QString station;
    QString device;
    Revision revision = Revision::Y2013;
    QVector<Analog> analogs;
    QVector<Digital> digitals; ///< normally 0
    double lineFrequency = 50; ///< Hz
    double rate = 0; ///< samples per second
    qint64 timeUnits = 1; ///< a time of the data file counts so many of Comtrade::timeUnit()
    qint64 samples = 0;
    virtualboard::WallTime start; ///< of the first sample
    virtualboard::WallTime trigger;

    /// The largest sample; the least one is its negative. What lies below that marks a missing one.
    [[nodiscard]] qint32 limit() const;
    /// What times of the data file count if timeUnits is 1.
    [[nodiscard]] virtualboard::Duration timeUnit() const;
    /// Sets timeUnits so that times up to that many \a seconds fit into the data file.
    void makeRoomFor(double seconds);
};

/// The content of the .cfg file. In texts, what is no printable character of ASCII becomes "?",
/// commas become blanks, and what is too long is cut; channels of the same name are numbered.
[[nodiscard]] QByteArray comtradeConfiguration(const Comtrade &record);

/// Sample \a number, counted from 0, as it stands in the .dat file.
/// \param analogs as many as the record has channels; nothing: they are marked as missing
/// \param digitals as many as the record has
[[nodiscard]] QByteArray comtradeSample(const Comtrade &record, qint64 number,
                                        const std::optional<QVector<qint32>> &analogs,
                                        const QVector<bool> &digitals);

/// Whether \a content is the begin of a .cfg file: its second line tells the numbers of channels.
[[nodiscard]] bool isComtradeConfiguration(const QByteArray &content);

} // namespace workbench
