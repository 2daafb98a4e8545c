#include "policy/guard.h"
#include "policy/json_node.h"

#include <nlohmann/json.hpp>

namespace {
constexpr size_t MAX_LEVELS = 64;

using Owner = json::Owner;

// Builds the tree from the parser's events. The parser keeps no stack of its own calls, so that the
// levels are counted here alone. The names of the events are the parser's.
class Builder : public nlohmann::json_sax<nlohmann::json>
{
public:
    Owner take() { return std::move(m_root); }
    bool tooDeep() const { return m_too_deep; }

    bool null() override { return add(JSON_NULL) != nullptr; }
    bool boolean(bool value) override
    {
        add(JSON_BOOL)->truth = value;
        return true;
    }
    bool number_integer(number_integer_t value) override { return addNumber(double(value)); }
    bool number_unsigned(number_unsigned_t value) override { return addNumber(double(value)); }
    bool number_float(number_float_t value, const string_t &) override { return addNumber(value); }
    bool string(string_t &value) override
    {
        add(JSON_STRING)->text = std::move(value);
        return true;
    }
    bool binary(binary_t &) override { return false; }
    bool start_object(size_t) override { return open(JSON_OBJECT); }
    bool start_array(size_t) override { return open(JSON_ARRAY); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool key(string_t &value) override
    {
        m_key = std::move(value);
        return true;
    }
    bool parse_error(size_t, const std::string &, const nlohmann::json::exception &) override
    {
        return false;
    }

private:
    json *add(int kind)
    {
        Owner node = std::make_unique<json>(kind);
        if (m_open.empty()) {
            m_root = std::move(node);
            return m_root.get();
        }
        if (m_open.back()->kind == JSON_OBJECT)
            node->name = std::move(m_key);
        return json_adopt(m_open.back(), std::move(node));
    }
    bool addNumber(double value)
    {
        add(JSON_NUMBER)->number = value;
        return true;
    }
    bool open(int kind)
    {
        m_too_deep = m_open.size() == MAX_LEVELS;
        if (!m_too_deep)
            m_open.push_back(add(kind));
        return !m_too_deep;
    }
    bool close()
    {
        m_open.pop_back();
        return true;
    }

    Owner m_root;
    std::vector<json *> m_open;
    std::string m_key;
    bool m_too_deep = false;
};
} // namespace

struct json *json_parse(const char *text, size_t length)
{
    if (!text) {
        errno = EINVAL;
        return nullptr;
    }
    return policy_guard<json *>(nullptr, [&]() -> json * {
        Builder builder;
        if (nlohmann::json::sax_parse(text, text + length, &builder))
            return builder.take().release();
        errno = builder.tooDeep() ? E2BIG : EINVAL;
        return nullptr;
    });
}
