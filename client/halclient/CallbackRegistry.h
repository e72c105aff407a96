/*
 * The registries that keep the library's callback clients alive: one-shot
 * request callbacks (exported, see halclient.h) and listener registrations
 * (private to the client).
 */
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "halclient.h"

/** Listener registrations in the order they were accepted. */
extern std::vector<DolmCallbackGroup> listen_callbacks;
/**
 * Guards listen_callbacks. Taken after the connection lock (shared), and
 * never held while the connection lock is taken exclusive.
 */
extern std::mutex listen_callback_mutex;

namespace halclient {

/**
 * Appends a one-shot client to request_callbacks under its mutex, logging
 * `addedLine` at INFO first. Called with the connection lock held shared and
 * before the request is sent, so that an early delivery finds its client.
 */
void addRequestCallback(const std::shared_ptr<DolmCallbackClient>& client, const char* addedLine);

/**
 * Drops every entry of request_callbacks that is `client`, logging the
 * removal and the sizes before and after. Takes request_callback_mutex.
 */
void removeRequestCallback(const DolmCallbackClient* client);

/**
 * The duplicate test of a listener registration: true (after logging the
 * refusal) when a group's list of the same kind equals `ids` or `paths`
 * element by element. Caller holds listen_callback_mutex.
 */
bool isListenerRegisteredLocked(const std::vector<int32_t>& ids);
bool isListenerRegisteredLocked(const std::vector<std::string>& paths);

/**
 * Drops every group with `handle`, one INFO line per group, an ERROR line if
 * there was none. Caller holds listen_callback_mutex.
 */
void removeListenersLocked(int32_t handle);

}  // namespace halclient
