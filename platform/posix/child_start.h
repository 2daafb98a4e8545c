// What a system does for the start of a child, beneath the owner that both systems share.
#pragma once

#include "platform/child.h"

struct ChildStart
{
    pid_t pid = -1;
    UniqueFd gate, report; // of a held child alone
};

// False with errno set.
bool child_start(const ChildLaunch &launch, ChildStart *started);
// The error that a child told before its program ran, or 0 once that runs.
int child_report(int fd);
// A launch's texts as exec takes them. The launch must outlive it.
class ChildTexts
{
public:
    explicit ChildTexts(const ChildLaunch &launch);
    char *const *argv() const { return m_argv.data(); }
    char *const *envp() const;

private:
    std::vector<char *> m_argv, m_envp; // null at the end; no environment: this process's own
};
