#pragma once

#include "display.h"
#include "items.h"

#include <functional>
#include <string>
#include <vector>

namespace Demo {

/// The operator at the panel: enters values, resets a block, deletes an item. The library stores whatever it is given;
/// the check against the bounds is the application's own.
class Panel
{
public:
    /// The deed of the operator that is next when the run has come that far, from 0 to 1.
    Panel(Storage& storage, Display& display, const std::vector<Row>& rows);
    void goOn(double progress);

    /// Changes one set point, and returns what it says to the user; empty when there is none to change.
    std::string changeOneMore();

    /// The IDs of what goOn() has deleted.
    const std::vector<unsigned int>& deleted() const { return m_deleted; }

private:
    struct Deed
    {
        double when;
        std::function<void()> act;
    };

    void enter(const Item& item, const CkelVariant& entry);
    void enterText();
    void changeSetPoint();
    void enterInBlock();
    void enterTooMuch();
    void resetBlock();
    void deleteItem();

    Storage& m_storage;
    Display& m_display;
    Item m_setPoint{};
    Item m_text{};
    Item m_blockEntry{};
    Item m_unwanted{};
    Item m_lastEntry{};
    std::vector<Deed> m_deeds;
    std::size_t m_next = 0;
    std::vector<unsigned int> m_deleted;
};

} // namespace Demo
