#include "tarvhv/tarvhv.h"
#include "tests/display/FakeSupervisor.h"

#include <QUuid>

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <unistd.h>

namespace {

class HostedVM : public testing::Test
{
protected:
    void SetUp() override
    {
        qputenv("TARV_HOST_ARM64", "1");
        tarvhv_set_supervisor(SUPERVISOR_TOOL);
        tarvhv_set_observer([this](const char *name, const std::string &id, bool failed) {
            EXPECT_EQ(id, m_id);
            m_told += std::string(name == TarvVMDidStartNotification ? "start" : "stop") +
                      (failed ? " failed " : " ");
        });
    }
    void TearDown() override
    {
        EXPECT_TRUE(spin_until([] { return TarvHVGetNumberOfVMsRunning() == 0; }));
        tarvhv_set_observer({});
        qunsetenv("TARV_HOST_ARM64");
    }
    std::string m_id = QUuid::createUuid().toString(QUuid::WithoutBraces).toStdString();
    std::string m_told;
};

TEST_F(HostedVM, isAnnouncedOnceItsScreenCanBeOpenedAndWhenItEnds)
{
    auto fake = std::make_unique<FakeSupervisor>(QStringLiteral("/tmp/com.quelda.tarvhv.%1.%2.sock")
                                                     .arg(QString::fromStdString(m_id))
                                                     .arg(getuid()));
    ASSERT_EQ(TarvHVStartVM(m_id.c_str(), 0), 0);
    EXPECT_EQ(TarvHVGetNumberOfVMsRunning(), 1u);
    EXPECT_EQ(TarvHVStartVM(m_id.c_str(), 0), -1);
    EXPECT_EQ(errno, EALREADY);
    ASSERT_TRUE(spin_until([&] { return fake->asked(); }));
    EXPECT_EQ(m_told, "");
    fake->answerRaw(R"({"status":"ERROR","error":1,"message":"it starts"})");
    ASSERT_TRUE(spin_until([&] { return fake->asked(); })) << "asked again";
    fake->answer(10, 10);
    ASSERT_TRUE(spin_until([&] { return m_told == "start "; }));
    fake.reset();
    EXPECT_TRUE(spin_until([&] { return m_told == "start stop "; }));
}

TEST_F(HostedVM, tellsHowItEnded)
{
    ASSERT_EQ(TarvHVStartVM(m_id.c_str(), 1), 0);
    EXPECT_TRUE(spin_until([&] { return m_told == "stop "; }));
    m_told.clear();
    ASSERT_EQ(TarvHVStartVM(m_id.c_str(), 2), 0);
    EXPECT_TRUE(spin_until([&] { return m_told == "stop failed "; }));
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
