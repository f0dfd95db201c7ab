#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include <stdlib.h>

/// A directory of its own for one test, gone with it.
class CTemporaryDirectory
{
public:
    CTemporaryDirectory()
    {
        std::string sPattern = (std::filesystem::temp_directory_path() / "cds-test-XXXXXX").string();
        if (!mkdtemp(sPattern.data()))
            throw std::runtime_error("no temporary directory: " + sPattern);
        m_path = sPattern;
    }
    ~CTemporaryDirectory()
    {
        std::error_code ignored; // what cannot be removed is no failure of the test
        std::filesystem::remove_all(m_path, ignored);
    }
    CTemporaryDirectory(const CTemporaryDirectory&) = delete;
    CTemporaryDirectory& operator=(const CTemporaryDirectory&) = delete;

    std::string file(const std::string& sName) const { return (m_path / sName).string(); }
    std::string path() const { return m_path.string(); }

    std::string read(const std::string& sName) const
    {
        std::ifstream stream(m_path / sName, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    void write(const std::string& sName, const std::string& sContent) const
    {
        std::ofstream(m_path / sName, std::ios::binary) << sContent;
    }
    /// Replaces a file in one step, for tests with a reader that may look at any moment.
    void replace(const std::string& sName, const std::string& sContent) const
    {
        write(sName + ".new", sContent);
        std::filesystem::rename(m_path / (sName + ".new"), m_path / sName);
    }

private:
    std::filesystem::path m_path;
};
