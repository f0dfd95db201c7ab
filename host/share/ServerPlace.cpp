// A server's configuration and trace log.
#include "share/ServerPlace.h"

#include "CDSSupport.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

CServerPlace::CServerPlace(const std::string& sProgram, const std::string& sLogDirectory)
{
    std::string sTemplate = (std::filesystem::temp_directory_path() / (sProgram + "-XXXXXX")).string();
    if (mkdtemp(sTemplate.data()) != nullptr)
        m_sTemporary = sTemplate;
    if (const std::string& sLogs = sLogDirectory.empty() ? m_sTemporary : sLogDirectory; !sLogs.empty())
        CDSSupport::setLogDirectory(sLogs);
}

CServerPlace::~CServerPlace()
{
    std::error_code ignored; // a directory left behind in the temporary one harms nobody
    if (!m_sTemporary.empty())
        std::filesystem::remove_all(m_sTemporary, ignored);
}

bool CServerPlace::configure(const CServerAddress& server, std::string* psError)
{
    const std::string sPath = m_sTemporary + "/cds.toml";
    std::ofstream file(sPath);
    file << "[Orvane.CDS.Messaging]\nLocalAddress = \"" << server.sAddress << "\"\nPort = " << server.wPort << '\n';
    file.close();
    if (m_sTemporary.empty() || !file)
        *psError = "the configuration cannot be written to " + sPath;
    else if (CDSSupport::setConfigurationFile(sPath, psError) >= 0)
        return true;
    return false;
}
