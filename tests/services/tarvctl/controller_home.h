// A home with the launch service, a library and a stand-in supervisor, and the controller run in
// it.
#pragma once

#include "tests/support/service_home.h"

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using Json = nlohmann::json;

class ControllerTest : public testing::Test
{
protected:
    ControllerTest()
    {
        m_home.set("supervisor_executable", SUPERVISOR_PROGRAM);
        m_home.environment["TARV_MACHINE_READABLE"] = "1";
        m_home.environment["IMAGES"] = m_home.file("images");
        m_home.environment["SUPERVISOR_ARGUMENTS"] = m_home.file("arguments");
        std::ofstream(m_home.file("raw.img")) << std::string(64 * 1024, 'x');
    }
    // Ends what still runs before the service is gone.
    void TearDown() override
    {
        const Json list = ctl({"list"});
        for (const Json &vm : list["body"])
            ctl({"stop", vm["id"], "--force"});
    }
    // Runs the controller; its answer, with the exit status as "exit".
    Json ctl(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), TARVCTL_PROGRAM);
        const ProgramResult result = m_home.run(arguments);
        Json answer = Json::parse(result.out, nullptr, false);
        EXPECT_TRUE(answer.is_object()) << result.out << result.err;
        if (answer.is_object())
            answer["exit"] = result.status;
        m_error = result.err;
        return answer;
    }
    // Makes a VM; its identifier.
    std::string create(const std::string &name)
    {
        const Json answer = ctl({"create", "--ram-size", "64M", "--disk-size", "4M", "--cpu-count",
                                 "1", name, m_home.file("raw.img")});
        EXPECT_EQ(answer["exit"], 0) << answer;
        return answer["body"].value("id", "");
    }
    std::string status(const std::string &id)
    {
        const Json list = ctl({"list"});
        for (const Json &vm : list["body"])
            if (vm["id"] == id)
                return vm["status"];
        return "gone";
    }
    std::vector<std::string> names(const std::string &directory) const
    {
        std::vector<std::string> result;
        for (const auto &entry : std::filesystem::directory_iterator(m_home.file(directory)))
            if (entry.path().filename() != ".removal-queue")
                result.push_back(entry.path().filename());
        return result;
    }
    std::string record(const std::string &id) const
    {
        return file_text(m_home.file("vms/" + id + "/config.yaml"));
    }

    unsigned mode_of(const std::string &file) const
    {
        return unsigned(std::filesystem::status(m_home.file(file)).permissions());
    }

    ServiceHome m_home;
    std::string m_error; // standard error of the last run
};
