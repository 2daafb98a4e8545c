#include "policy/kv.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>

namespace {
using namespace std::string_literals;
using Tree = std::unique_ptr<kv, decltype(&kv_free)>;
using Stream = std::unique_ptr<FILE, decltype(&fclose)>;

// The tree of a text, or null with errno.
Tree load(const std::string &text)
{
    const Stream stream(tmpfile(), fclose);
    fwrite(text.data(), 1, text.size(), stream.get());
    rewind(stream.get());
    Tree tree(kv_new_type(KV_MAP), kv_free);
    if (kv_load_yaml(tree.get(), stream.get()) == 0)
        return tree;
    EXPECT_EQ(kv_count(tree.get()), 0u) << "a failed load leaves nothing";
    return Tree(nullptr, kv_free);
}

std::string save(const kv *tree)
{
    char *text = nullptr;
    size_t size = 0;
    Stream stream(open_memstream(&text, &size), fclose);
    const int result = kv_save_yaml(tree, stream.get());
    stream.reset();
    const std::string saved(text, size);
    free(text);
    return result == 0 ? saved : "error: " + std::string(kv_yaml_error());
}

std::string rewritten(const std::string &text)
{
    const Tree tree = load(text);
    return tree ? save(tree.get()) : "error: " + std::string(kv_yaml_error());
}

TEST(KvYaml, rewritesADocumentAsItWas)
{
    for (const std::string text : {
             "# Made by hand.\n\n#   Keep me.\nname: Big Box\nversion: 1.10\nserial: 007\n"
             "on: yes\nquoted: \"yes\"\nsingle: '1.10'\nempty:\nnothing: ~\nzero: 0x1F\n"
             "when: 2026-11-21T09:18:31Z\nunknown_key:\n  deep: [1, two, {three: 3}]\n"
             "hard_drives:\n- file: a.qcow2\n  controller: ablk\n- file: b.qcow2\n"
             "script: |\n  one\n    two\nfolded: >\n  some text\n\"quoted key\": 1\n",
             "---\n# below the marker\na: 1\n",
             "# only\n--- # here\n\n# and here\na: é\n",
             "a: {}\nb: []\nc: [2026-11-21, !!timestamp '2026-11-21T09:18:31Z']\n",
         })
        EXPECT_EQ(rewritten(text), text);
}

TEST(KvYaml, keepsAHeaderHoweverTheLinesEnd)
{
    EXPECT_EQ(rewritten("\xef\xbb\xbf# c\r\na: 1\r\n"), "# c\r\na: 1\n");
    EXPECT_EQ(rewritten("# c\xe2\x80\xa8"
                        "a: 1\n"),
              "# c\xe2\x80\xa8\na: 1\n");
    EXPECT_EQ(rewritten("# nothing else"), "# nothing else\n{}\n");
    EXPECT_EQ(rewritten("# c\n%YAML 1.1\n---\na: 1\n"), "# c\n---\na: 1\n");
    EXPECT_EQ(rewritten("\xff\xfe#\0c\0\n\0a\0:\0 \0"
                        "1\0"s),
              "a: 1\n")
        << "UTF-16";
    EXPECT_EQ(rewritten(""), "{}\n");
}

TEST(KvYaml, quotesTextsThatWouldReadAsSomethingElse)
{
    const std::string texts[] = {"1.10",
                                 "yes",
                                 "007",
                                 "-3",
                                 "0x1f",
                                 "1e5",
                                 "2026-11-21",
                                 "10:30",
                                 "null",
                                 "~",
                                 "",
                                 "<<",
                                 "- a",
                                 "a: b",
                                 "# c",
                                 " padded ",
                                 "with \"both\" 'quotes'",
                                 "line\nbreak\n",
                                 "tab\there",
                                 "*a",
                                 "!t",
                                 "%d",
                                 "---",
                                 "trailing:",
                                 "\x7f",
                                 "plain"};
    for (const std::string &text : texts) {
        const Tree tree(kv_new_type(KV_MAP), kv_free);
        kv_set_type(tree.get(), "text", text.c_str(), KV_STRING);
        kv_set_type(tree.get(), text.c_str(), "key", KV_STRING);
        const std::string saved = save(tree.get());
        const Tree again = load(saved);
        ASSERT_TRUE(again) << saved << kv_yaml_error();
        const kv *const node = kv_get(again.get(), "text");
        EXPECT_EQ(kv_type(node), uint32_t{KV_STRING}) << saved;
        EXPECT_EQ(kv_str(node, ""), text);
        EXPECT_STREQ(kv_str(kv_get(again.get(), text.c_str()), ""), "key") << saved;
        // Whatever needed quotes got them, and nothing else did.
        EXPECT_EQ(saved == "text: plain\nplain: key\n", text == "plain");
    }
}

TEST(KvYaml, readsTypesOfPlainScalarsOnly)
{
    const Tree tree = load("i: 4096\nneg: -1\nhex: 0x10\nb: off\nd: 2026-11-21\n"
                           "dz: 1970-01-01 01:00:05.9+01:00\nn:\ns: '4'\nf: 1.5\n"
                           "big: 9223372036854775808\ntagged: !!int '5'\ntext: !!str 5\n");
    ASSERT_TRUE(tree) << kv_yaml_error();
    const struct
    {
        const char *key;
        uint32_t type;
        int64_t number;
        const char *text;
    } expected[] = {{"i", KV_INT, 4096, "4096"},
                    {"neg", KV_INT, -1, "-1"},
                    {"hex", KV_INT, 16, "0x10"},
                    {"b", KV_BOOL, 0, "off"},
                    {"d", KV_DATE, 1795219200, "2026-11-21"},
                    {"dz", KV_DATE, 5, "1970-01-01 01:00:05.9+01:00"},
                    {"n", KV_NONE, -9, "default"},
                    {"s", KV_STRING, -9, "4"},
                    {"f", KV_STRING, -9, "1.5"},
                    {"big", KV_STRING, -9, "9223372036854775808"},
                    {"tagged", KV_INT, 5, "5"},
                    {"text", KV_STRING, -9, "5"}};
    for (const auto &[key, type, number, text] : expected) {
        EXPECT_EQ(kv_type(kv_get(tree.get(), key)), type) << key;
        EXPECT_EQ(kv_get_int(tree.get(), key, -9), number) << key;
        EXPECT_STREQ(kv_get_str(tree.get(), key, "default"), text) << key;
    }
}

TEST(KvYaml, refusesWhatItCannotKeep)
{
    const std::string levels_64 = std::string(63, '[') + std::string(63, ']');
    EXPECT_TRUE(load("a: " + levels_64));
    const struct
    {
        std::string text;
        int error;
        const char *message;
    } cases[] = {
        {"a: 1\nb: {c: 1, d: 2, c: 3}\n", EINVAL, "'c' twice"},
        {"a: 1\n\"a\": 2\n", EINVAL, "'a' twice"},
        {"a: 1\n---\nb: 2\n", EINVAL, "line 2: a second document"},
        {"- a\n", EINVAL, "not a mapping"},
        {"text\n", EINVAL, "not a mapping"},
        {"{}: 1\n", EINVAL, "key that is not a text"},
        {"a: [1\n", EINVAL, "line "},
        {"a: \xff\n", EINVAL, "UTF-8"},
        {"a: *b\n", EINVAL, "'b'"},
        {"a: &b [*b]\n", EINVAL, "holds itself"},
        {"a: [" + levels_64 + "]", E2BIG, "64 levels"},
        {"a: &b " + levels_64 + "\nc: [*b]\n", E2BIG, "64 levels"},
        {"a: [" + std::string(400000, ',') + "]", EINVAL, "line "},
        {"a:\n" + std::string([] {
             std::string items;
             for (int item = 0; item < 200001; ++item)
                 items += "- 1\n";
             return items;
         }()),
         E2BIG, "200000"},
        {std::string((4 << 20) + 1, '\n'), EFBIG, "4 MiB"},
    };
    for (const auto &[text, error, message] : cases) {
        errno = 0;
        EXPECT_FALSE(load(text)) << text.substr(0, 80);
        EXPECT_EQ(errno, error) << text.substr(0, 80);
        EXPECT_NE(std::string(kv_yaml_error()).find(message), std::string::npos)
            << kv_yaml_error() << " for " << text.substr(0, 80);
    }
}

TEST(KvYaml, copiesAliasesUpToACap)
{
    EXPECT_EQ(rewritten("a: &x {k: 1}\nb: *x\nc: [*x, *x]\n"),
              "a: {k: 1}\nb: {k: 1}\nc: [{k: 1}, {k: 1}]\n");
    std::string bomb = "a0: &a0 [x, x, x, x, x, x, x, x, x, x]\n";
    for (int level = 1; level < 9; ++level) {
        const std::string name = "a" + std::to_string(level);
        const std::string alias = "*a" + std::to_string(level - 1);
        bomb += name + ": &" + name + " [" + alias;
        for (int item = 1; item < 10; ++item)
            bomb += ", " + alias;
        bomb += "]\n";
    }
    EXPECT_FALSE(load(bomb));
    EXPECT_EQ(errno, E2BIG);
    std::string wide = "a: &a " + std::string(100000, 'x') + "\nb:\n";
    for (int item = 0; item < 20; ++item)
        wide += "- *a\n";
    EXPECT_FALSE(load(wide));
    EXPECT_EQ(errno, E2BIG);
}

TEST(KvYaml, reportsAStreamThatFails)
{
    const Stream full(fopen("/dev/full", "w"), fclose);
    const Tree tree = load("a: 1\n");
    EXPECT_EQ(kv_save_yaml(tree.get(), full.get()), -1);
    EXPECT_EQ(errno, ENOSPC);
    const Stream directory(fopen("/", "r"), fclose);
    const Tree target(kv_new_type(KV_MAP), kv_free);
    EXPECT_EQ(kv_load_yaml(target.get(), directory.get()), -1);
    EXPECT_EQ(errno, EISDIR);
}
} // namespace
