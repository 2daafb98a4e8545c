#include "tarvhv/tarvhv.h"
#include "tests/app/kit/application.h"

#include <QUuid>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace {

class HostedVM : public ApplicationTest
{
protected:
    void SetUp() override
    {
        qputenv("TARV_HOST_ARM64", "1");
        tarvhv_set_observer([this](const char *name, const std::string &id, bool failed) {
            EXPECT_EQ(id, m_id);
            m_told += std::string(name == TarvVMDidStartNotification ? "start" : "stop") +
                      (failed ? " failed " : " ");
        });
    }
    void TearDown() override
    {
        EXPECT_TRUE(waitUntil([] { return TarvHVGetNumberOfVMsRunning() == 0; }));
        tarvhv_set_observer({});
        qunsetenv("TARV_HOST_ARM64");
    }
    std::string m_id = QUuid::createUuid().toString(QUuid::WithoutBraces).toStdString();
    std::string m_told;
};

TEST_F(HostedVM, tellsHowItEnded)
{
    tarvhv_set_supervisor("/bin/true");
    ASSERT_EQ(TarvHVStartVM(m_id.c_str(), 0), 0);
    EXPECT_TRUE(waitUntil([&] { return m_told == "stop "; }));
    m_told.clear();
    tarvhv_set_supervisor("/bin/false");
    ASSERT_EQ(TarvHVStartVM(m_id.c_str(), 0), 0);
    EXPECT_TRUE(waitUntil([&] { return m_told == "stop failed "; }));
    tarvhv_set_supervisor("/nowhere/tarvvm");
    EXPECT_EQ(TarvHVStartVM(m_id.c_str(), 0), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(HostOfTheFirstType, startsNoVMs)
{
    qputenv("TARV_HOST_ARM64", "0");
    EXPECT_EQ(TarvHVStartVM("any", 0), -1);
    EXPECT_EQ(errno, ENOSYS);
    qunsetenv("TARV_HOST_ARM64");
}

} // namespace
