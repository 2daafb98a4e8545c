#include "tests/policy/yaml_text.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {
using namespace std::string_literals;

std::string rewritten(const std::string &text)
{
    const KvOwner tree = load_yaml(text);
    return tree ? save_yaml(tree.get()) : "error: " + std::string(kv_yaml_error());
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
    for (const std::string text :
         {"1.10", "yes", "007", "-3",  "0x1f", "1e5",  "2001-11-21", "10:30",  "null",
          "~",    "",    "<<",  "- a", "a: b", "# c",  " pad ",      "\"a' b", "a\nb\n",
          "a\tb", "*a",  "!t",  "%d",  "---",  "end:", "\x7f",       "plain"}) {
        const KvOwner tree(kv_new_type(KV_MAP));
        kv_set_type(tree.get(), "text", text.c_str(), KV_STRING);
        kv_set_type(tree.get(), text.c_str(), "key", KV_STRING);
        const std::string saved = save_yaml(tree.get());
        const KvOwner again = load_yaml(saved);
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
    const std::tuple<const char *, uint32_t, int64_t, const char *> rows[] = {
        {"4096", KV_INT, 4096, "4096"},
        {"-1", KV_INT, -1, "-1"},
        {"0x10", KV_INT, 16, "0x10"},
        {"007", KV_STRING, -9, "007"},
        {"off", KV_BOOL, 0, "off"},
        {"2026-11-21", KV_DATE, 1795219200, "2026-11-21"},
        {"1970-01-01 01:00:05.9+01:00", KV_DATE, 5, "1970-01-01 01:00:05.9+01:00"},
        {"", KV_NONE, -9, "default"},
        {"'4'", KV_STRING, -9, "4"},
        {"1.5", KV_STRING, -9, "1.5"},
        {"9223372036854775808", KV_STRING, -9, "9223372036854775808"},
        {"!!int '5'", KV_INT, 5, "5"},
        {"!!str 5", KV_STRING, -9, "5"}};
    for (const auto &[yaml, type, number, text] : rows) {
        const KvOwner tree = load_yaml("a: " + std::string(yaml));
        EXPECT_EQ(kv_type(kv_get(tree.get(), "a")), type) << yaml;
        EXPECT_EQ(kv_get_int(tree.get(), "a", -9), number) << yaml;
        EXPECT_STREQ(kv_get_str(tree.get(), "a", "default"), text) << yaml;
    }
}

TEST(KvYaml, refusesWhatItCannotKeep)
{
    const std::string levels_64 = std::string(63, '[') + std::string(63, ']');
    EXPECT_TRUE(load_yaml("a: " + levels_64));
    std::string many = "a:\n";
    for (int item = 0; item < 200001; ++item)
        many += "- 1\n";
    const std::tuple<std::string, int, const char *> cases[] = {
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
        {many, E2BIG, "200000"},
        {std::string((4 << 20) + 1, '\n'), EFBIG, "4 MiB"},
    };
    for (const auto &[text, error, message] : cases) {
        errno = 0;
        EXPECT_FALSE(load_yaml(text)) << text.substr(0, 80);
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
    EXPECT_FALSE(load_yaml(bomb));
    EXPECT_EQ(errno, E2BIG);
    std::string wide = "a: &a " + std::string(100000, 'x') + "\nb:\n";
    for (int item = 0; item < 20; ++item)
        wide += "- *a\n";
    EXPECT_FALSE(load_yaml(wide));
    EXPECT_EQ(errno, E2BIG);
}

TEST(KvYaml, reportsAStreamThatFails)
{
    const Stream full(fopen("/dev/full", "w"), fclose);
    const KvOwner tree = load_yaml("a: 1\n");
    EXPECT_EQ(kv_save_yaml(tree.get(), full.get()), -1);
    EXPECT_EQ(errno, ENOSPC);
    const Stream directory(fopen("/", "r"), fclose);
    const KvOwner target(kv_new_type(KV_MAP));
    EXPECT_EQ(kv_load_yaml(target.get(), directory.get()), -1);
    EXPECT_EQ(errno, EISDIR);
}
} // namespace
