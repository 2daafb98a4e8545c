#include "policy/kv.h"

#include "policy/owners.h"

#include <gtest/gtest.h>

#include <string>

namespace {
std::string keys(const kv *tree)
{
    std::string text;
    for (const kv *child = kv_first(tree); child; child = kv_next(child))
        text += std::string(kv_key(child) ? kv_key(child) : "-") + " ";
    return text;
}

TEST(Kv, replacesAValueInItsPlace)
{
    const KvOwner tree(kv_new_type(KV_MAP));
    kv_set_type(tree.get(), "a", 1, KV_INT);
    kv_set_type(tree.get(), "b", "text", KV_STRING);
    kv_set_type(tree.get(), "c", true, KV_BOOL);
    EXPECT_EQ(kv_set_type(tree.get(), "b", uint64_t{1} << 63, KV_INT), 0);
    EXPECT_EQ(keys(tree.get()), "a b c ");
    EXPECT_EQ(static_cast<uint64_t>(kv_get_int(tree.get(), "b", 0)), uint64_t{1} << 63);
    EXPECT_STREQ(kv_get_str(tree.get(), "b", "none"), "none") << "a number has no text";
    // A node's own key is a fine key for it.
    kv *const taken = kv_detach(tree.get(), "a");
    EXPECT_EQ(kv_set(tree.get(), kv_key(taken), taken), 0);
    EXPECT_EQ(keys(tree.get()), "b c a ");
}

TEST(Kv, findsByExactKeyFirstAndByPathElse)
{
    const KvOwner tree(kv_new_type(KV_MAP));
    kv *const drives = kv_new_type(KV_LIST);
    kv *const drive = kv_new_type(KV_MAP);
    kv_set_type(drive, "file", "a.qcow2", KV_CONST);
    kv_set(drives, nullptr, drive);
    kv_set(tree.get(), "hard_drives", drives);
    EXPECT_STREQ(kv_get_str(tree.get(), "hard_drives[0].file", ""), "a.qcow2");
    EXPECT_EQ(kv_find(tree.get(), "hard_drives[1].file"), nullptr);
    EXPECT_EQ(kv_find(tree.get(), "hard_drives[-1]"), nullptr);
    EXPECT_EQ(kv_find(tree.get(), "hard_drives[99999999999999999999]"), nullptr);
    kv_set_type(tree.get(), "hard_drives[0].file", "by key", KV_STRING);
    EXPECT_STREQ(kv_get_str(tree.get(), "hard_drives[0].file", ""), "by key");
    EXPECT_STREQ(kv_get_str(nullptr, "a.b", "default"), "default");
}

// A peer may send as many members as fit into a message. With a search through all the others for
// each of them this takes minutes.
TEST(Kv, findsAmongManyKeysWithoutASearch)
{
    constexpr int MEMBERS = 150'000;
    const KvOwner tree(kv_new_type(KV_MAP));
    const auto key = [](int i) { return "k" + std::to_string(i); };
    for (int i = 0; i < MEMBERS; ++i)
        ASSERT_EQ(kv_set_type(tree.get(), key(i).c_str(), i, KV_INT), 0);
    for (int i = 0; i < MEMBERS; i += 2)
        ASSERT_EQ(kv_set_type(tree.get(), key(i).c_str(), -i, KV_INT), 0);
    for (int i = 0; i < MEMBERS; i += 3)
        kv_free(kv_detach(tree.get(), key(i).c_str()));
    EXPECT_EQ(kv_count(tree.get()), MEMBERS - (MEMBERS + 2) / 3);
    for (int i = 0; i < MEMBERS; ++i)
        ASSERT_EQ(kv_get_int(tree.get(), key(i).c_str(), 1), i % 3 == 0 ? 1 : i % 2 == 0 ? -i : i);
    EXPECT_STREQ(kv_key(kv_first(tree.get())), "k1");
}

} // namespace
