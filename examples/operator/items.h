#pragma once

#include "datastorage/kelabstractdatastorage.h"

#include <functional>
#include <string>
#include <vector>

/// What every part of the program knows about items. Their names, bounds and write levels come from the dictionary.
namespace Demo {

using Item = Ombrin::tagStorageData;
using Storage = Ombrin::CkelAbstractDataStorage;
using Ombrin::CkelVariant;

/// All items by ascending ID.
std::vector<Item> allItems(const Storage& storage);

bool isText(const Item& item);
bool isBitField(const Item& item);
bool isReal(const Item& item);
bool isNumber(const Item& item); ///< real or integer, but no switch and no bit field
bool isWritable(const Item& item);

/// The item of that name; when there is none, the first of `items` that suits; else an item with ID 0.
Item pick(const std::vector<Item>& items, const std::string& name, const std::function<bool(const Item&)>& suits);

/// A value of `item` as the screen shows it.
std::string shown(const Item& item, const CkelVariant& value);

/// Blanks before or behind `text` up to `width` characters of UTF-8.
std::string alignedLeft(const std::string& text, std::size_t width);
std::string alignedRight(const std::string& text, std::size_t width);

/// A number with a fixed count of decimals.
std::string fixed(double number, int decimals);

} // namespace Demo
