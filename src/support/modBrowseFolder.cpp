#include "support/modBrowseFolder.h"

namespace {

// Without a window nobody can choose: every prompt is a cancel.
class CNoFolderPicker : public IFolderPickerService {
public:
    std::string Pick(const std::string&) override { return {}; }
};

IFolderPickerService* g_service = nullptr;

} // namespace

void SetFolderPickerService(IFolderPickerService* service) {
    g_service = service;
}

IFolderPickerService& FolderPickerService() {
    static CNoFolderPicker none;
    return g_service ? *g_service : none;
}

std::string BrowseForFolder(const std::string& title) {
    return FolderPickerService().Pick(title);
}
