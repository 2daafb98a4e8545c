#include "policy/guard.h"
#include "policy/kv_node.h"
#include "policy/kv_yaml.h"
#include "policy/scalar.h"

#include <algorithm>

#include <string.h>

namespace {
// The text of a scalar and whether it may stand plain.
struct Written
{
    std::string text;
    int style;
};

bool has_control(std::string_view text)
{
    return std::any_of(text.begin(), text.end(),
                       [](unsigned char c) { return c < 0x20 || c == 0x7f; });
}

// The style for a text that no document has given one.
int style_for(std::string_view text)
{
    if (has_control(text))
        return YAML_DOUBLE_QUOTED_SCALAR_STYLE;
    return scalar_is_ambiguous(text) ? YAML_SINGLE_QUOTED_SCALAR_STYLE : YAML_PLAIN_SCALAR_STYLE;
}

Written write_scalar(const kv &node, bool in_flow)
{
    if (node.text && node.form.style) {
        // Nothing at all is a null in block style only.
        if (node.type == KV_NONE && node.text->empty() && in_flow)
            return {"null", YAML_PLAIN_SCALAR_STYLE};
        return {*node.text, node.form.style};
    }
    switch (node.type) {
    case KV_INT:
        return {std::to_string(node.number), YAML_PLAIN_SCALAR_STYLE};
    case KV_BOOL:
        return {node.number ? "true" : "false", YAML_PLAIN_SCALAR_STYLE};
    case KV_DATE:
        return {scalar_date(node.number), YAML_PLAIN_SCALAR_STYLE};
    case KV_NONE:
        return {"null", YAML_PLAIN_SCALAR_STYLE};
    default:
        const std::string text = node.text ? *node.text : kv_str(&node, "");
        return {text, style_for(text)};
    }
}

// Writes a tree as libyaml's events. A step that fails leaves the reason in the emitter.
class Saver
{
public:
    explicit Saver(FILE *stream) : m_stream(stream)
    {
        if (!yaml_emitter_initialize(&m_emitter))
            throw std::bad_alloc();
        yaml_emitter_set_output(&m_emitter, write, this);
        yaml_emitter_set_unicode(&m_emitter, 1);
        yaml_emitter_set_width(&m_emitter, -1);
    }

    bool save(const kv &root)
    {
        const std::string &header = root.form.header;
        if (!writeBytes(header.data(), header.size()))
            return false;
        YamlEvent event;
        return yaml_stream_start_event_initialize(&event, YAML_UTF8_ENCODING) && emit(event) &&
               yaml_document_start_event_initialize(&event, nullptr, nullptr, nullptr, 1) &&
               emit(event) && saveNode(root) && yaml_document_end_event_initialize(&event, 1) &&
               emit(event) && yaml_stream_end_event_initialize(&event) && emit(event) && flush();
    }

    // Why save() failed: of the stream, or of the tree.
    int error() const { return m_stream_error ? m_stream_error : EINVAL; }
    std::string message() const
    {
        if (m_stream_error)
            return strerror(m_stream_error);
        if (!m_message.empty())
            return m_message;
        return m_emitter.problem ? m_emitter.problem : "a text is not UTF-8";
    }

private:
    static int write(void *context, unsigned char *bytes, size_t size)
    {
        return static_cast<Saver *>(context)->writeBytes(bytes, size);
    }
    bool writeBytes(const void *bytes, size_t size)
    {
        if (fwrite(bytes, 1, size, m_stream) == size)
            return true;
        m_stream_error = errno;
        return false;
    }
    bool flush()
    {
        if (fflush(m_stream) == 0)
            return true;
        m_stream_error = errno;
        return false;
    }

    // The emitter takes the event over, whether it fails or not.
    bool emit(yaml_event_t &event)
    {
        yaml_event_t taken = event;
        event = {};
        return yaml_emitter_emit(&m_emitter, &taken) != 0;
    }

    bool saveNode(const kv &node)
    {
        if (node.type == KV_MAP)
            return saveMapping(node);
        return node.type == KV_LIST ? saveList(node) : saveScalar(node);
    }

    bool saveText(const std::string &tag, const Written &written)
    {
        YamlEvent event;
        const yaml_char_t *const bytes = reinterpret_cast<const yaml_char_t *>(written.text.data());
        return yaml_scalar_event_initialize(
                   &event, nullptr, bytesOf(tag), const_cast<yaml_char_t *>(bytes),
                   static_cast<int>(written.text.size()), tag.empty(), tag.empty(),
                   static_cast<yaml_scalar_style_t>(written.style)) &&
               emit(event);
    }

    bool saveScalar(const kv &node)
    {
        const Written written = write_scalar(node, m_flow > 0);
        // Flow style has no plain text with a colon in it, and a date in quotes would be a text.
        const bool tagged_date = m_flow > 0 && node.type == KV_DATE && node.form.tag.empty() &&
                                 written.text.find(':') != std::string::npos;
        return saveText(tagged_date ? "tag:yaml.org,2002:timestamp" : node.form.tag, written);
    }

    bool saveList(const kv &list)
    {
        YamlEvent event;
        const auto style = static_cast<yaml_sequence_style_t>(list.form.style);
        if (!yaml_sequence_start_event_initialize(&event, nullptr, bytesOf(list.form.tag),
                                                  list.form.tag.empty(), style) ||
            !emit(event))
            return false;
        const bool flow = style == YAML_FLOW_SEQUENCE_STYLE;
        m_flow += flow;
        for (const kv::Owner &child : list.children)
            if (!saveNode(*child))
                return false;
        m_flow -= flow;
        return yaml_sequence_end_event_initialize(&event) && emit(event);
    }

    bool saveMapping(const kv &map)
    {
        YamlEvent event;
        const auto style = static_cast<yaml_mapping_style_t>(map.form.style);
        if (!yaml_mapping_start_event_initialize(&event, nullptr, bytesOf(map.form.tag),
                                                 map.form.tag.empty(), style) ||
            !emit(event))
            return false;
        const bool flow = style == YAML_FLOW_MAPPING_STYLE;
        m_flow += flow;
        for (const kv::Owner &child : map.children)
            if (!saveKey(*child) || !saveNode(*child))
                return false;
        m_flow -= flow;
        return yaml_mapping_end_event_initialize(&event) && emit(event);
    }

    bool saveKey(const kv &child)
    {
        if (!child.key) {
            m_message = "a mapping holds a value without a key";
            return false;
        }
        const int style = child.form.key_style;
        return saveText("", {*child.key, style ? style : style_for(*child.key)});
    }

    static yaml_char_t *bytesOf(const std::string &tag)
    {
        if (tag.empty())
            return nullptr;
        return const_cast<yaml_char_t *>(reinterpret_cast<const yaml_char_t *>(tag.c_str()));
    }

    FILE *m_stream;
    YamlEmitter m_emitter;
    int m_flow = 0;
    int m_stream_error = 0;
    std::string m_message;
};

int save(const kv *kv, FILE *stream)
{
    if (!kv || kv->type != KV_MAP || !stream) {
        kv_yaml_set_error("only a mapping is saved as a document");
        errno = EINVAL;
        return -1;
    }
    Saver saver(stream);
    if (saver.save(*kv))
        return 0;
    kv_yaml_set_error(saver.message());
    errno = saver.error();
    return -1;
}
} // namespace

int kv_save_yaml(const struct kv *kv, FILE *stream)
{
    kv_yaml_set_error({});
    return policy_guard(-1, [&] { return save(kv, stream); });
}
