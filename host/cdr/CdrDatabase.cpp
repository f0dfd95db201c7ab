// Which database a URL names.
#include "cdr/CdrDatabase.h"

#include "cdr/CdrSqlite.h"
#ifdef CDS_HAVE_POSTGRES
#include "cdr/CdrPostgres.h"
#endif

namespace {

constexpr const char* cFileScheme = "sqlite://";

bool isPostgres(const std::string& sUrl)
{
    return sUrl.starts_with("postgresql://") || sUrl.starts_with("postgres://");
}

template <class TDatabase>
std::unique_ptr<CCdrDatabase> opened(const std::string& sPlace, ECdrOpen eOpen, std::string* psError)
{
    auto pDatabase = std::make_unique<TDatabase>(sPlace);
    std::string sWhy;
    if (pDatabase->open(eOpen, &sWhy))
        return pDatabase;
    *psError = "cannot use the database " + sWhy;
    return nullptr;
}

} // namespace

std::string cdrFilePath(const std::string& sUrl)
{
    if (sUrl.starts_with(cFileScheme))
        return sUrl.substr(std::string(cFileScheme).size());
    return sUrl.find("://") == std::string::npos ? sUrl : "";
}

std::unique_ptr<CCdrDatabase> openCdrDatabase(const std::string& sUrl, ECdrOpen eOpen, std::string* psError)
{
    if (isPostgres(sUrl))
    {
#ifdef CDS_HAVE_POSTGRES
        return opened<CPostgresCdrDatabase>(sUrl, eOpen, psError);
#else
        *psError = "this program is built without PostgreSQL: install libpqxx-dev, and configure and build again";
        return nullptr;
#endif
    }
    if (const std::string sPath = cdrFilePath(sUrl); !sPath.empty())
        return opened<CSqliteCdrDatabase>(sPath, eOpen, psError);
    *psError = "no database is named by \"" + sUrl + "\": give postgresql://..., sqlite:///path or a path";
    return nullptr;
}
