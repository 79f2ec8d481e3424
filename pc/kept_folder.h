// The folder of the host that keeps a PC between runs.
#pragma once

#include <string>

// Makes the folder unless it is there, and has it for this program alone: two PCs that write one
// disk and one registry would leave a mixture of both.
class KeptFolder
{
public:
    // Nothing for an empty name. Throws SetupError, which names the option, the folder and, where
    // another program has it, that program.
    explicit KeptFolder(const std::string& root);
    ~KeptFolder();
    KeptFolder(const KeptFolder&) = delete;
    KeptFolder& operator=(const KeptFolder&) = delete;

private:
    int m_lock = -1;
};
