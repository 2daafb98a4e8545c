#include "policy/guard.h"
#include "policy/kv_node.h"
#include "policy/kv_yaml.h"
#include "policy/scalar.h"

#include <algorithm>
#include <unordered_map>
#include <vector>

#include <string.h>

namespace {
constexpr size_t MAX_BYTES = size_t{4} << 20;
constexpr size_t MAX_LEVELS = 64;
constexpr size_t MAX_VALUES = 200'000;
constexpr size_t MAX_ALIAS_VALUES = 10'000;
constexpr size_t MAX_ALIAS_BYTES = size_t{1} << 20;

thread_local std::string last_error;

// A reason to give up, on its way out of the loader.
struct Refusal
{
    int error;
    std::string message;
};

[[noreturn]] void refuse(int error, const std::string &message)
{
    throw Refusal{error, message};
}

[[noreturn]] void refuse(int error, const yaml_mark_t &mark, const std::string &message)
{
    refuse(error, "line " + std::to_string(mark.line + 1) + ": " + message);
}

std::string read_all(FILE *stream)
{
    std::string text;
    char chunk[1 << 14];
    errno = 0;
    while (const size_t count = fread(chunk, 1, sizeof chunk, stream)) {
        text.append(chunk, count);
        if (text.size() > MAX_BYTES)
            refuse(EFBIG, "the document is larger than 4 MiB");
    }
    if (ferror(stream))
        refuse(errno ? errno : EIO, strerror(errno ? errno : EIO));
    return text;
}

// The comment lines above the document's first key. libyaml counts characters and drops comments;
// all the text before a token is white space and comments.
class Header
{
public:
    // The comments of a UTF-16 text are given up: it is saved as UTF-8.
    explicit Header(std::string_view text)
    {
        if (!text.starts_with("\xff\xfe") && !text.starts_with("\xfe\xff"))
            m_text = text;
    }

    void startDocument(const yaml_event_t &event)
    {
        m_above = upTo(event.start_mark);
        m_marked = !event.data.document_start.implicit;
        m_below = event.end_mark;
    }
    // The header of a document whose first value starts at a mark.
    std::string take(const yaml_mark_t &first) const
    {
        std::string header(ended(m_above));
        if (m_marked)
            header += ended("---" + std::string(upTo(first).substr(upTo(m_below).size())));
        return header;
    }
    // The header of a text without any document.
    std::string all() const { return ended(m_text); }

private:
    std::string_view upTo(const yaml_mark_t &mark) const
    {
        size_t characters = 0, byte = 0;
        for (; byte < m_text.size(); ++byte)
            if ((static_cast<unsigned char>(m_text[byte]) & 0xc0) != 0x80)
                if (characters++ == mark.index)
                    break;
        return m_text.substr(0, byte);
    }
    static std::string ended(std::string_view lines)
    {
        const size_t last = lines.find_last_not_of(" \t");
        std::string text(lines.substr(0, last == lines.npos ? 0 : last + 1));
        if (!text.empty() && text.back() != '\n')
            text += '\n';
        return text;
    }

    std::string_view m_text;
    std::string_view m_above;
    yaml_mark_t m_below{};
    bool m_marked = false;
};

const char *text_of(const yaml_char_t *text)
{
    return text ? reinterpret_cast<const char *>(text) : "";
}

// The tag of a node, "" for the "!" that names none.
std::string tag_of(const yaml_char_t *tag, bool implicit)
{
    const std::string text = text_of(tag);
    return implicit || text == "!" ? "" : text;
}

uint32_t type_of_tag(const std::string &tag, std::string_view text, int64_t &number)
{
    constexpr std::string_view core = "tag:yaml.org,2002:";
    const Scalar scalar = scalar_resolve(text);
    const auto is = [&](std::string_view name) {
        return tag.starts_with(core) && tag.substr(core.size()) == name;
    };
    const bool agrees =
        (is("int") && scalar.type == KV_INT) || (is("bool") && scalar.type == KV_BOOL) ||
        (is("null") && scalar.type == KV_NONE) || (is("timestamp") && scalar.type == KV_DATE);
    number = agrees ? scalar.number : 0;
    return agrees ? scalar.type : uint32_t{KV_STRING};
}

kv::Owner make_scalar(const yaml_event_t &event)
{
    const auto &scalar = event.data.scalar;
    kv::Owner node = std::make_unique<kv>(KV_STRING);
    node->text.emplace(reinterpret_cast<const char *>(scalar.value), scalar.length);
    node->form.style = scalar.style;
    node->form.tag = tag_of(scalar.tag, scalar.plain_implicit || scalar.quoted_implicit);
    if (!node->form.tag.empty()) {
        node->type = type_of_tag(node->form.tag, *node->text, node->number);
    } else if (scalar.plain_implicit && scalar.style == YAML_PLAIN_SCALAR_STYLE) {
        const Scalar meaning = scalar_resolve(*node->text);
        node->type = meaning.type;
        node->number = meaning.number;
    } else if (scalar.style == YAML_PLAIN_SCALAR_STYLE) {
        // A "!" with nothing behind it is the empty text.
        node->form.style = YAML_SINGLE_QUOTED_SCALAR_STYLE;
    }
    return node;
}

// Builds the tree below a mapping from libyaml's events.
class Loader
{
public:
    Loader(kv *root, std::string_view text) : m_root(root), m_header(text)
    {
        if (!yaml_parser_initialize(&m_parser))
            throw std::bad_alloc();
        yaml_parser_set_input_string(
            &m_parser, reinterpret_cast<const unsigned char *>(text.data()), text.size());
    }

    void load()
    {
        while (m_running) {
            YamlEvent event;
            if (!yaml_parser_parse(&m_parser, &event))
                refuseParser();
            take(event);
        }
        if (!m_documents)
            m_root->form.header = m_header.all();
    }

private:
    [[noreturn]] void refuseParser()
    {
        if (m_parser.error == YAML_MEMORY_ERROR)
            throw std::bad_alloc();
        const yaml_mark_t mark =
            m_parser.error == YAML_READER_ERROR ? m_parser.mark : m_parser.problem_mark;
        refuse(EINVAL, mark, m_parser.problem ? m_parser.problem : "not YAML");
    }

    void take(const yaml_event_t &event)
    {
        switch (event.type) {
        case YAML_STREAM_END_EVENT:
            m_running = false;
            break;
        case YAML_DOCUMENT_START_EVENT:
            if (m_documents++)
                refuse(EINVAL, event.start_mark, "a second document begins here");
            m_header.startDocument(event);
            break;
        case YAML_MAPPING_START_EVENT:
            open(event, KV_MAP, event.data.mapping_start.style,
                 tag_of(event.data.mapping_start.tag, event.data.mapping_start.implicit),
                 event.data.mapping_start.anchor);
            break;
        case YAML_SEQUENCE_START_EVENT:
            open(event, KV_LIST, event.data.sequence_start.style,
                 tag_of(event.data.sequence_start.tag, event.data.sequence_start.implicit),
                 event.data.sequence_start.anchor);
            break;
        case YAML_MAPPING_END_EVENT:
            checkKeys(event);
            m_open.pop_back();
            break;
        case YAML_SEQUENCE_END_EVENT:
            m_open.pop_back();
            break;
        case YAML_SCALAR_EVENT:
            takeScalar(event);
            break;
        case YAML_ALIAS_EVENT:
            takeAlias(event);
            break;
        default:
            break;
        }
    }

    bool wantsKey() const { return m_open.back()->type == KV_MAP && !m_key; }

    void open(const yaml_event_t &event, uint32_t type, int style, std::string tag,
              const yaml_char_t *anchor)
    {
        if (m_open.size() == MAX_LEVELS)
            refuse(E2BIG, event.start_mark, "more than 64 levels");
        kv *node = m_root;
        if (m_open.empty()) {
            if (type != KV_MAP)
                refuse(EINVAL, event.start_mark, "the document is not a mapping");
            m_root->form.header = m_header.take(event.start_mark);
        } else {
            node = add(event, std::make_unique<kv>(type));
        }
        node->form.style = style;
        node->form.tag = std::move(tag);
        m_open.push_back(node);
        if (anchor)
            m_anchors[text_of(anchor)] = node;
    }

    void takeScalar(const yaml_event_t &event)
    {
        const auto &scalar = event.data.scalar;
        if (m_open.empty()) {
            if (scalar.length || scalar.style != YAML_PLAIN_SCALAR_STYLE || scalar.tag)
                refuse(EINVAL, event.start_mark, "the document is not a mapping");
            m_root->form.header = m_header.take(event.start_mark);
        } else if (wantsKey()) {
            if (scalar.anchor)
                refuse(EINVAL, event.start_mark, "a key with an anchor");
            m_key.emplace(reinterpret_cast<const char *>(scalar.value), scalar.length);
            m_key_style = scalar.style;
            if (m_key->find('\0') != std::string::npos)
                refuse(EINVAL, event.start_mark, "a key holds a NUL byte");
        } else {
            kv *const node = add(event, make_scalar(event));
            if (scalar.anchor)
                m_anchors[text_of(scalar.anchor)] = node;
        }
    }

    void takeAlias(const yaml_event_t &event)
    {
        const std::string name = text_of(event.data.alias.anchor);
        const auto anchor = m_anchors.find(name);
        if (anchor == m_anchors.end())
            refuse(EINVAL, event.start_mark, "nothing has the anchor '" + name + "'");
        const kv *const origin = anchor->second;
        if (std::find(m_open.begin(), m_open.end(), origin) != m_open.end())
            refuse(EINVAL, event.start_mark, "'" + name + "' holds itself");
        kv::Owner node = copy(event, origin, m_open.size());
        add(event, std::move(node));
    }

    // A copy of what an anchor names, within the caps. `level` counts the containers around it.
    kv::Owner copy(const yaml_event_t &event, const kv *origin, size_t level)
    {
        m_alias_bytes +=
            (origin->text ? origin->text->size() : 0) + (origin->key ? origin->key->size() : 0);
        if (++m_alias_values > MAX_ALIAS_VALUES || m_alias_bytes > MAX_ALIAS_BYTES)
            refuse(E2BIG, event.start_mark, "aliases stand for too much");
        if (level == MAX_LEVELS && origin->isContainer())
            refuse(E2BIG, event.start_mark, "more than 64 levels");
        kv::Owner node = std::make_unique<kv>(origin->type);
        node->key = origin->key;
        node->text = origin->text;
        node->number = origin->number;
        node->form = origin->form;
        for (const kv::Owner &child : origin->children)
            kv_adopt(node.get(), copy(event, child.get(), level + 1));
        return node;
    }

    kv *add(const yaml_event_t &event, kv::Owner node)
    {
        if (++m_values > MAX_VALUES)
            refuse(E2BIG, event.start_mark, "more than 200000 values");
        if (m_open.back()->type == KV_MAP) {
            if (!m_key)
                refuse(EINVAL, event.start_mark, "a key that is not a text");
            node->form.key_style = m_key_style;
        }
        node->key = std::move(m_key);
        m_key.reset();
        return kv_adopt(m_open.back(), std::move(node));
    }

    // Sorting finds a key that is there twice without comparing each with each.
    void checkKeys(const yaml_event_t &event) const
    {
        std::vector<std::string_view> keys;
        keys.reserve(m_open.back()->children.size());
        for (const kv::Owner &child : m_open.back()->children)
            keys.push_back(*child->key);
        std::sort(keys.begin(), keys.end());
        const auto twice = std::adjacent_find(keys.begin(), keys.end());
        if (twice != keys.end())
            refuse(EINVAL, event.start_mark,
                   "the mapping above has the key '" + std::string(*twice) + "' twice");
    }

    kv *m_root;
    Header m_header;
    YamlParser m_parser;
    std::vector<kv *> m_open;
    std::unordered_map<std::string, const kv *> m_anchors;
    std::optional<std::string> m_key;
    int m_key_style = 0;
    size_t m_documents = 0, m_values = 0, m_alias_values = 0, m_alias_bytes = 0;
    bool m_running = true;
};

int load(kv *root, FILE *stream)
{
    if (!root || root->type != KV_MAP || !root->children.empty() || !stream)
        refuse(EINVAL, "a document is loaded into an empty mapping");
    const std::string text = read_all(stream);
    constexpr std::string_view byte_order_mark = "\xef\xbb\xbf";
    std::string_view body = text;
    while (body.starts_with(byte_order_mark))
        body.remove_prefix(byte_order_mark.size());
    kv loaded(KV_MAP);
    Loader(&loaded, body).load();
    root->form = std::move(loaded.form);
    for (kv::Owner &child : loaded.children)
        kv_adopt(root, std::move(child));
    return 0;
}
} // namespace

void kv_yaml_set_error(std::string message)
{
    last_error = std::move(message);
}

const char *kv_yaml_error()
{
    return last_error.c_str();
}

int kv_load_yaml(struct kv *kv, FILE *stream)
{
    last_error.clear();
    return policy_guard(-1, [&] {
        try {
            return load(kv, stream);
        } catch (Refusal &refusal) {
            last_error = std::move(refusal.message);
            errno = refusal.error;
            return -1;
        }
    });
}
