#pragma once

// How the windows connect their handlers: every click, key and signal runs under the error
// trap (TrappedHandler), named "<form> <handler>" in the error report, so no handler can end
// the program with an error that nothing caught.

#include "support/CProcTrap.h"

#include <QObject>

#include <string>
#include <utility>

template <class Sender, class Signal, class Handler>
QMetaObject::Connection OnSignal(Sender* sender, Signal signal, QObject* context,
                                 const std::string& procedure, Handler handler) {
    return QObject::connect(sender, signal, context, TrappedHandler(procedure, std::move(handler)));
}
