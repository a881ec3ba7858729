#include "benchmarks/check.h"
#include "benchmarks/measure.h"
#include "benchmarks/memory.h"
#include "benchmarks/rows.h"
#include "benchmarks/world.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QEvent>
#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QVariant>

#include <malloc.h>

namespace KelBench {

namespace {

QString qText(const CkelVariant& value)
{
    return QString::fromStdString(value.toStdString());
}

QVariant qVariant(const CkelVariant& value)
{
    switch (value.type()) {
    case CkelVariant::String:
        return qText(value);
    case CkelVariant::Double:
        return value.toDouble();
    case CkelVariant::Int:
        return value.toInt();
    default:
        return value.toULongLong();
    }
}

struct QtChange
{
    quint32 id;
    QVariant value;
};

std::vector<QtChange> qtChanges(const std::vector<Change>& changes)
{
    std::vector<QtChange> list;
    list.reserve(changes.size());
    for (const Change& change : changes)
        list.push_back({change.id, qVariant(change.value)});
    return list;
}

/// The dictionary as a Qt program holds it.
struct QtWorld
{
    explicit QtWorld(const World& world) : same(qtChanges(world.same)), changed(qtChanges(world.changed))
    {
        byID.reserve(static_cast<qsizetype>(world.size()));
        byName.reserve(static_cast<qsizetype>(world.size()));
        for (const tagStorageData& item : world.items) {
            byID.insert(item.ID, qVariant(item.Value));
            byName.insert(QByteArray::fromStdString(item.NameID), qVariant(item.Value));
        }
        for (const std::string& name : world.names)
            names.push_back(QByteArray::fromStdString(name));
    }

    static QtWorld& of(const World& world)
    {
        static QtWorld shared(world);
        return shared;
    }

    QHash<quint32, QVariant> byID;
    QHash<QByteArray, QVariant> byName;
    std::vector<QByteArray> names; // in the order of the lookups
    std::vector<QtChange> same;
    std::vector<QtChange> changed;
};

void queryByID(benchmark::State& state, const World& world)
{
    const QtWorld& qt = QtWorld::of(world);
    check(state, qt.byID.size() == static_cast<qsizetype>(world.size()), "QHash misses items");
    measureCalls(state, world.ids, [&](unsigned int id) { benchmark::DoNotOptimize(qt.byID.value(id)); });
}

void queryByName(benchmark::State& state, const World& world)
{
    const QtWorld& qt = QtWorld::of(world);
    measureCalls(state, qt.names, [&](const QByteArray& name) { benchmark::DoNotOptimize(qt.byName.value(name)); });
}

class ChangeEvent : public QEvent
{
public:
    static constexpr Type type = User;

    ChangeEvent(quint32 changedId, const QVariant& newValue) : QEvent(type), id(changedId), value(newValue) {}

    const quint32 id;
    const QVariant value;
};

class Receiver : public QObject
{
public:
    bool event(QEvent* event) override
    {
        if (event->type() != ChangeEvent::type)
            return QObject::event(event);
        ++count;
        last = static_cast<const ChangeEvent*>(event)->id;
        return true;
    }

    std::int64_t count = 0;
    quint32 last = 0;
};

/// Merges as programs do it by hand: the receiver is woken once, and looks up what has changed.
class MergingReceiver : public QObject
{
public:
    void change(quint32 id, const QVariant& value)
    {
        const auto waiting = m_waiting.find(id);
        if (waiting != m_waiting.end()) {
            *waiting = value;
            return;
        }
        m_waiting.insert(id, value);
        if (m_waiting.size() == 1)
            QCoreApplication::postEvent(this, new QEvent(QEvent::User));
    }

    bool event(QEvent* event) override
    {
        if (event->type() != QEvent::User)
            return QObject::event(event);
        count += m_waiting.size();
        m_waiting.clear();
        return true;
    }

    std::int64_t count = 0;

private:
    QHash<quint32, QVariant> m_waiting;
};

/// An application, made before the first use.
void requireApplication()
{
    static int argc = 1;
    static char name[] = "kel_benchmarks";
    static char* argv[] = {name, nullptr};
    static const QCoreApplication application(argc, argv);
}

template <typename Turn>
void updateChanged(benchmark::State& state, const World& world, std::size_t perTurn, Turn turn)
{
    requireApplication();
    QtWorld& qt = QtWorld::of(world);
    Receiver receiver;
    std::size_t next = 0;
    bool back = false;
    while (state.KeepRunningBatch(batchSize)) {
        const std::vector<QtChange>& changes = back ? qt.same : qt.changed;
        for (std::size_t i = 0; i < batchSize; ++i) {
            const QtChange& change = changes[next + i];
            *qt.byID.find(change.id) = change.value;
            QCoreApplication::postEvent(&receiver, new ChangeEvent(change.id, change.value));
            if ((i + 1) % perTurn == 0)
                turn();
        }
        next = (next + batchSize) % changes.size();
        back = back != (next == 0);
    }
    check(state, receiver.count == state.iterations(), "Qt delivers otherwise");
    for (const QtChange& change : qt.same)
        *qt.byID.find(change.id) = change.value;
}

void updateMerged(benchmark::State& state, const World& world)
{
    requireApplication();
    QtWorld& qt = QtWorld::of(world);
    MergingReceiver receiver;
    const quint32 id = world.numberID();
    qulonglong number = 0;
    std::int64_t turns = 0;
    while (state.KeepRunningBatch(batchSize)) {
        for (std::size_t i = 0; i < batchSize; ++i) {
            const QVariant value(++number);
            *qt.byID.find(id) = value;
            receiver.change(id, value);
        }
        QCoreApplication::sendPostedEvents();
        ++turns;
    }
    check(state, receiver.count == turns, "Qt merges otherwise");
    *qt.byID.find(id) = qVariant(world.storage->queryValue(id));
}

void updateUnmerged(benchmark::State& state, const World& world)
{
    requireApplication();
    QtWorld& qt = QtWorld::of(world);
    Receiver receiver;
    const quint32 id = world.numberID();
    qulonglong number = 0;
    while (state.KeepRunningBatch(batchSize)) {
        for (std::size_t i = 0; i < batchSize; ++i) {
            const QVariant value(++number);
            *qt.byID.find(id) = value;
            QCoreApplication::postEvent(&receiver, new ChangeEvent(id, value));
        }
        QCoreApplication::sendPostedEvents();
    }
    check(state, receiver.count == state.iterations() && receiver.last == id, "Qt delivers otherwise");
    *qt.byID.find(id) = qVariant(world.storage->queryValue(id));
}

struct Record
{
    quint32 id;
    QByteArray name;
    quint8 bytes[5];
    QVariant value;
    QVariant defValue;
    QVariant max;
    QVariant min;
    quint8 dirty;
};

/// The same content, without the spare slots, under both keys; the names are shared, as Qt does by itself.
void countMemory(benchmark::State& state, const World& world)
{
    for (auto _ : state) {
        const std::size_t before = bytesInUse();
        QHash<quint32, Record> items;
        QHash<QByteArray, quint32> names;
        items.reserve(static_cast<qsizetype>(world.size()));
        names.reserve(static_cast<qsizetype>(world.size()));
        for (const tagStorageData& item : world.items) {
            const bool bounded = item.ValueT != Ombrin::ValueTypeText; // as a configuration database has them
            const QByteArray name = QByteArray::fromStdString(item.NameID);
            items.insert(item.ID, Record{item.ID,
                                         name,
                                         {item.CommSource, item.DBSource, item.RW, item.Block, item.ValueT},
                                         qVariant(item.Value),
                                         qVariant(item.DefValue),
                                         bounded ? qVariant(item.Max) : QVariant(),
                                         bounded ? qVariant(item.Min) : QVariant(),
                                         item.Dirty});
            names.insert(name, item.ID);
        }
        state.counters["bytes_per_item"] =
            static_cast<double>(bytesInUse() - before) / static_cast<double>(world.size());
    }
}

/// Reads the dictionary with Qt's JSON parser into what countMemory() counts.
void readDictionary(QHash<quint32, Record>& items, QHash<QByteArray, quint32>& names, const std::string& path)
{
    QFile file(QString::fromStdString(path));
    require(file.open(QIODevice::ReadOnly), "Qt opens the dictionary");
    const QJsonArray array = QJsonDocument::fromJson(file.readAll()).object().value(u"kel").toArray();
    items.reserve(array.size());
    names.reserve(array.size());
    for (const auto& element : array) {
        const QJsonObject object = element.toObject();
        const auto byte = [&](QStringView key) { return static_cast<quint8>(object.value(key).toInt()); };
        const auto id = static_cast<quint32>(object.value(u"ID").toInteger());
        const QByteArray name = object.value(u"NameID").toString().toUtf8();
        items.insert(id, Record{id,
                                name,
                                {byte(u"CommSource"), byte(u"DBSource"), byte(u"RW"), byte(u"Block"), byte(u"ValueT")},
                                object.value(u"Value").toVariant(),
                                object.value(u"DefValue").toVariant(),
                                object.value(u"Max").toVariant(),
                                object.value(u"Min").toVariant(),
                                0});
        names.insert(name, id);
    }
}

void readJson(benchmark::State& state, const World& world)
{
    for (auto _ : state) {
        QHash<quint32, Record> items;
        QHash<QByteArray, quint32> names;
        malloc_trim(0);
        measureOnce<ThreadClock>(state, [&] { readDictionary(items, names, world.jsonPath); });
        const tagStorageData& item = world.item(0);
        check(state,
              items.size() == static_cast<qsizetype>(world.size()) &&
                  items.value(item.ID).value.toString() == qVariant(item.Value).toString(),
              "Qt reads something else");
    }
}

/// A pass over all items, as QHash has no order.
void selectRange(benchmark::State& state, const World& world)
{
    const QtWorld& qt = QtWorld::of(world);
    qsizetype count = 0;
    for (auto _ : state) {
        QList<QVariant> values;
        for (auto item = qt.byID.cbegin(); item != qt.byID.cend(); ++item) {
            if (selectedFirst <= item.key() && item.key() < selectedLast)
                values.append(item.value());
        }
        benchmark::DoNotOptimize(values.constData());
        count = values.size();
    }
    check(state,
          count == static_cast<qsizetype>(world.storage->queryValueListBetween(selectedFirst, selectedLast).size()),
          "Qt selects other items");
}

} // namespace

void registerQt(World& world)
{
    benchmark::AddCustomContext("qt", qVersion());
    addRow("query_id/Qt", world, queryByID);
    addRow("query_name/Qt", world, queryByName);
    addRow("select_range/Qt", world, selectRange);
    if (world.size() <= 100000) // the page shows the smallest size
        addRow("read_json/Qt", world, readJson)->UseManualTime();
    addRow("update_changed/Qt", world, [](benchmark::State& state, World& shared) {
        updateChanged(state, shared, batchSize, [] { QCoreApplication::sendPostedEvents(); });
    });
    addRow("update_turn/Qt", world, [](benchmark::State& state, World& shared) {
        updateChanged(state, shared, 1, [] { QCoreApplication::processEvents(); });
    });
    addRow("update_merged/Qt", world, updateMerged);
    addRow("update_merged/Qt unmerged", world, updateUnmerged);
    addRow("memory/Qt", world, countMemory)->Iterations(1)->Repetitions(1);
}

} // namespace KelBench
