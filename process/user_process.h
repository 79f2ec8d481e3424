// A program in the session of the user at the console.
#pragma once

// Stands for at most one started program; destroying it does not end the program.
class CUserProcess
{
public:
    CUserProcess() = default;
    virtual ~CUserProcess();
    CUserProcess(const CUserProcess&) = delete;
    CUserProcess& operator=(const CUserProcess&) = delete;
};
