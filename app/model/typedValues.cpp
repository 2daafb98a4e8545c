#include "app/model/typedValues.h"

#include <cmath>

namespace typedValues {

template <>
std::optional<QString> objectOfClass<QString>(const QJsonObject &map, const QString &key)
{
    const QJsonValue value = map.value(key);
    return value.isString() ? std::optional(value.toString()) : std::nullopt;
}

template <>
std::optional<double> objectOfClass<double>(const QJsonObject &map, const QString &key)
{
    const QJsonValue value = map.value(key);
    if (value.isBool())
        return value.toBool() ? 1.0 : 0.0;
    return value.isDouble() ? std::optional(value.toDouble()) : std::nullopt;
}

template <>
std::optional<bool> objectOfClass<bool>(const QJsonObject &map, const QString &key)
{
    const QJsonValue value = map.value(key);
    return value.isBool() ? std::optional(value.toBool()) : std::nullopt;
}

template <>
std::optional<QJsonObject> objectOfClass<QJsonObject>(const QJsonObject &map, const QString &key)
{
    const QJsonValue value = map.value(key);
    return value.isObject() ? std::optional(value.toObject()) : std::nullopt;
}

template <>
std::optional<QJsonArray> objectOfClass<QJsonArray>(const QJsonObject &map, const QString &key)
{
    const QJsonValue value = map.value(key);
    return value.isArray() ? std::optional(value.toArray()) : std::nullopt;
}

std::optional<double> numberForKey(const QJsonObject &map, const QString &key)
{
    return objectOfClass<double>(map, key);
}

std::optional<QString> stringForKey(const QJsonObject &map, const QString &key)
{
    return objectOfClass<QString>(map, key);
}

int64_t integerForKey(const QJsonObject &map, const QString &key, int64_t missingValueMarker)
{
    const auto number = numberForKey(map, key);
    if (!number)
        return missingValueMarker;
    // Whole numbers are kept exactly by the value itself; others lose their fraction.
    constexpr double limit = 9223372036854775808.0; // 2^63
    const double whole = std::trunc(*number);
    const int64_t nearest = whole >= limit   ? INTEGER_MISSING
                            : whole < -limit ? std::numeric_limits<int64_t>::min()
                                             : static_cast<int64_t>(whole);
    return map.value(key).isBool() ? nearest : map.value(key).toInteger(nearest);
}

} // namespace typedValues
