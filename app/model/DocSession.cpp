#include "app/model/DocSession.h"

namespace korv {

DocSession::DocSession(std::unique_ptr<StudioDocument> d, std::string n,
                       std::optional<std::filesystem::path> url, bool dirty, Uuid sessionID)
    : id(sessionID), doc(std::move(d)), name(std::move(n)), fileURL(std::move(url)) {
    savedChange = doc->changeCount() - (dirty ? 1 : 0);
    autosavedChange = doc->changeCount();
}

} // namespace korv
