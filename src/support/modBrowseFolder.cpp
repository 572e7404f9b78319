#include "support/modBrowseFolder.h"

#include "support/CServiceContext.h"

namespace {

// Without a window nobody can choose: every prompt is a cancel.
class CNoFolderPicker : public IFolderPickerService {
public:
    std::string Pick(const std::string&) override { return {}; }
};

struct FolderPickerChoice {
    IFolderPickerService* service = nullptr;
};

} // namespace

void SetFolderPickerService(IFolderPickerService* service) {
    ServicePart<FolderPickerChoice>().service = service;
}

IFolderPickerService& FolderPickerService() {
    static CNoFolderPicker none;
    IFolderPickerService* chosen = ServicePart<FolderPickerChoice>().service;
    return chosen ? *chosen : none;
}

std::string BrowseForFolder(const std::string& title) {
    return FolderPickerService().Pick(title);
}
