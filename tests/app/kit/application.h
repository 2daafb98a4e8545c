// An application object and a private home for tests of windows.
#pragma once

#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>

#include <functional>

// A folder that is there until the tests end; preferences are kept in it.
QDir privateHome();
// The application, on the offscreen platform, made on first use: a plain one unless the tests have
// set another maker before.
QApplication &testApplication();
extern QApplication *(*testApplicationMaker)(int &argc, char **argv);
// A test that has the application from its first member on.
struct ApplicationTest : testing::Test
{
    ApplicationTest() { testApplication(); }
};
// Runs the event loop until a condition holds; false after a generous deadline.
bool waitUntil(const std::function<bool()> &condition, int deadline_ms = 30000);
