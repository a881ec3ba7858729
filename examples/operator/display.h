#pragma once

#include "items.h"
#include "kernel/kelobject.h"
#include "kernel/keltimer.h"

#include <chrono>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace Demo {

/// A line of the table: an item, and where there is one, the set point that it follows.
struct Row
{
    Item actual;
    Item set;                       ///< ID 0 without a set point
    std::vector<std::string> words; ///< what the values 0, 1, 2... mean, if not themselves
};

/// Shows items as the data sensor reports them. On a terminal, a table stays in place below the messages; elsewhere,
/// and with plain lines asked for, the items that changed are printed now and then.
class Display : public Ombrin::CkelObject
{
public:
    explicit Display(bool live);

    /// Shows `rows` from now on. `interval` is the time between plain lines in milliseconds.
    void show(const std::vector<Row>& rows, int interval);

    /// A line that stays.
    void say(const std::string& message);

    /// What goes on, for the last line of the table. Not shown among plain lines.
    void setStatus(const std::string& status);

    /// Shows now what has changed.
    void refresh();

    /// Shows what is still to be shown, and leaves the table as it is.
    void finish();

    /// A changed value.
    void dataSensorEvent(Ombrin::CkelDataSensorEvent* event) override;

private:
    void draw();
    void eraseTable();
    void printChanges();
    std::string header() const;
    std::string line(const Row& row) const;
    std::string valueOf(const Row& row) const;
    std::string setPointOf(const Row& row) const;
    bool hasChanged(const Row& row) const;

    const bool m_live;
    const std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
    Ombrin::CkelTimer m_timer;
    std::vector<Row> m_rows;
    std::size_t m_nameWidth = 0;
    std::unordered_map<unsigned int, CkelVariant> m_values;
    std::set<unsigned int> m_changed; ///< since they were shown last
    std::string m_status;
    std::size_t m_drawn = 0; ///< lines of the table that stand on the screen
};

/// Whether standard output is a terminal that can move its cursor.
bool isTerminal();

} // namespace Demo
