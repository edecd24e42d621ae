#include <new>

#include "extdll/sendmail.h"

SendmailState* SendmailManager::FindOrAddState(int32 cid) {
    const UTLock lock(_cs.mutex());
    if (!lock.is_held()) return nullptr;
    SendmailState* state = findState(cid);
    if (state == nullptr) {
        std::unique_ptr<SendmailState> made(new (std::nothrow) SendmailState(cid));
        // Without its lock a session must not be found by others.
        if (made == nullptr || !made->is_usable()) return nullptr;
        state = made.release();
        linkState(state);
    }
    ++state->refcount;
    return state;
}

SendmailState* SendmailManager::FindState(int32 cid) {
    const UTLock lock(_cs.mutex());
    SendmailState* const state = lock.is_held() ? findState(cid) : nullptr;
    if (state != nullptr) ++state->refcount;
    return state;
}

void SendmailManager::ReleaseState(SendmailState* state) {
    // Deleted outside the lock, which other calls need: a session may unload a provider.
    bool last = false;
    {
        const UTLock lock(_cs.mutex());
        last = --state->refcount == 0;
    }
    if (last) delete state;
}

// Kept: xp_startsmtp never gives its reference back, so that a session that was started outlives
// its stop as a small record without client.
void SendmailManager::ReleaseAndDeleteState(SendmailState* state) {
    bool last = false;
    {
        const UTLock lock(_cs.mutex());
        --state->refcount;
        unlinkState(state);
        last = state->refcount == 0;
    }
    if (last) delete state;
}

SendmailState* SendmailManager::findState(int32 cid) const {
    SendmailState* state = _head;
    while (state != nullptr && state->cid != cid) state = state->next;
    return state;
}

void SendmailManager::linkState(SendmailState* state) {
    state->next = _head;
    _head = state;
    ++state->refcount;
}

void SendmailManager::unlinkState(SendmailState* state) {
    for (SendmailState** link = &_head; *link != nullptr; link = &(*link)->next) {
        if (*link != state) continue;
        *link = state->next;
        --state->refcount;
        return;
    }
}
