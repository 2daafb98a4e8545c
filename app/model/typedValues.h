// Typed look-ups in string-keyed maps: the answers of the controller.
#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <cstdint>
#include <limits>
#include <optional>

namespace typedValues {

inline constexpr int64_t INTEGER_MISSING = std::numeric_limits<int64_t>::max();

// The value when it is of the class, otherwise none. Classes: QString, double, bool, QJsonObject,
// QJsonArray. A truth value is a number too (0 or 1), as in the answers' origin.
template <class T>
std::optional<T> objectOfClass(const QJsonObject &map, const QString &key);

std::optional<double> numberForKey(const QJsonObject &map, const QString &key);
std::optional<QString> stringForKey(const QJsonObject &map, const QString &key);
// The number's integer value, or the marker when the value is missing or not a number.
int64_t integerForKey(const QJsonObject &map, const QString &key,
                      int64_t missingValueMarker = INTEGER_MISSING);

} // namespace typedValues
