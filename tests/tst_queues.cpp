// What the threads of a live board hand to each other: nothing torn, nothing out of order, and what
// did not fit is known. Worth most under ThreadSanitizer.

#include "virtualboard/live/livecapture.h"
#include "virtualboard/play/snapshot.h"

#include <QTest>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using namespace virtualboard;
using namespace std::chrono_literals;

class TestQueues : public QObject
{
    Q_OBJECT

private slots:
    void snapshot();
    void records_data();
    void records();
};

/// Every reader sees whole values only, and none that is older than one it has seen.
void TestQueues::snapshot()
{
    struct Value
    {
        std::array<quint64, 40> words = {};
    };
    Snapshot<Value> shown;
    std::atomic<bool> stopping = false;
    std::array<int, 2> torn = {}, old = {}, news = {};
    std::array<std::thread, 2> readers;
    for (std::size_t i = 0; i < readers.size(); ++i) {
        readers[i] = std::thread([&, i] {
            for (quint64 last = 0; !stopping;) {
                const Value value = shown.read();
                for (const quint64 word : value.words)
                    torn[i] += word != value.words[0];
                old[i] += value.words[0] < last;
                news[i] += value.words[0] > last;
                last = value.words[0];
            }
        });
    }
    const auto end = std::chrono::steady_clock::now() + 500ms;
    for (quint64 number = 1; std::chrono::steady_clock::now() < end; ++number) {
        Value value;
        value.words.fill(number);
        shown.write(value);
        if (number % 64 == 0)
            std::this_thread::yield();
    }
    stopping = true;
    for (std::thread &each : readers)
        each.join();
    for (std::size_t i = 0; i < readers.size(); ++i) {
        QCOMPARE(torn[i], 0);
        QCOMPARE(old[i], 0);
        QVERIFY(news[i] > 0);
    }
}

void TestQueues::records_data()
{
    QTest::addColumn<int>("capacity");
    QTest::addColumn<int>("reserve");
    QTest::newRow("often full") << 256 << 0;
    QTest::newRow("room kept for others") << 1024 << 512;
    QTest::newRow("never full") << (32 << 20) << 0;
}

/// Records of all sizes, none included, come out whole and in order; those that are missing are
/// those that the writer was told did not fit.
void TestQueues::records()
{
    QFETCH(int, capacity);
    QFETCH(int, reserve);
    constexpr quint32 kRecords = 50'000;
    constexpr quint32 kSizes = 97; // of a body: 0 to 96
    struct Head
    {
        quint32 number = 0;
        quint32 size = 0;
    };
    RecordQueue queue{std::size_t(capacity)};
    std::vector<bool> wasPut(kRecords);
    std::atomic<bool> isDone = false;
    std::thread writer([&] {
        std::array<uchar, kSizes> body;
        for (quint32 i = 0; i < kRecords; ++i) {
            const Head head = {i, i % kSizes};
            body.fill(uchar(i));
            wasPut[i] = queue.put(&head, sizeof head, head.size > 0 ? body.data() : nullptr,
                                  head.size, std::size_t(i % 2 == 0 ? reserve : 0));
            if (!wasPut[i])
                std::this_thread::yield();
        }
        isDone = true;
    });
    std::vector<bool> wasTaken(kRecords);
    int faults = 0;
    qint64 last = -1;
    while (true) {
        const bool isLast = isDone;
        Head head;
        while (queue.take(&head, sizeof head)) {
            std::array<uchar, kSizes> body;
            const bool isThere = head.size < kSizes && queue.take(body.data(), head.size);
            faults += !isThere || head.number >= kRecords || head.number <= last
                || head.size != head.number % kSizes;
            for (quint32 i = 0; isThere && i < head.size; ++i)
                faults += body[i] != uchar(head.number);
            last = head.number;
            wasTaken[head.number % kRecords] = true;
        }
        if (isLast)
            break;
        std::this_thread::yield();
    }
    writer.join();
    QCOMPARE(faults, 0);
    QVERIFY(wasTaken == wasPut);
    const auto lost = std::count(wasPut.begin(), wasPut.end(), false);
    QCOMPARE(lost > 0, capacity < 2000);
    QVERIFY(quint32(lost) < kRecords);
}

QTEST_GUILESS_MAIN(TestQueues)
#include "tst_queues.moc"
