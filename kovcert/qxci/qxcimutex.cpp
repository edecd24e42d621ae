#include "kovcert/qxci/qxcimutex.h"

DBQXCIMutex::DBQXCIMutex(const a_qxci_callbacks& callbacks, void* global_context)
    : _callbacks(callbacks), _global_context(global_context) {
    if (_callbacks.mutex_create_cb != nullptr) {
        _handle = _callbacks.mutex_create_cb(_global_context);
    }
}

DBQXCIMutex::~DBQXCIMutex() {
    if (_handle != nullptr) _callbacks.mutex_destroy_cb(_global_context, _handle);
}

void DBQXCIMutex::get() {
    if (_handle != nullptr) _callbacks.mutex_get_cb(_global_context, _handle);
}

void DBQXCIMutex::give() {
    if (_handle != nullptr) _callbacks.mutex_give_cb(_global_context, _handle);
}
