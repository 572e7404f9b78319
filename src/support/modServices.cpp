#include "support/modServices.h"

#include "support/CServiceContext.h"

CErrHandler& ErrHandler() {
    return ServicePart<CErrHandler>();
}

CLogger& Logger() {
    return ServicePart<CLogger>();
}
