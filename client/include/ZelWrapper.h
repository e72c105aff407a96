/*
 * Wrapper layer of libtarvo-zel-client: framework code names events by action
 * name ("TALVEN_" followed by an entry of gActionList) instead of by number.
 *
 * This header declares the acquire, release and notify wrappers, the resource
 * list builders, and the exported tables they are built on. The tables are
 * filled when the library is loaded, before any exported function can run,
 * and never change afterwards, so any thread may read them without a lock.
 */
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "halclient.h"

/**
 * The action table: 199 action names, each "ACTION_" followed by upper-case
 * letters, digits and underscores. The position of an entry (from 0) is the
 * event id sent to the service, so the order is fixed. Some names stand twice
 * (positions 91-94 and 106-109, 102 and 162); a search by name must take the
 * first copy. Built by the library's static initialiser and destroyed at
 * unload; read-only for callers.
 */
extern std::vector<std::string> gActionList;

/**
 * Resource opcodes that the list builders pair, position by position, with the
 * comma-separated values of a notification text: the value at position i is
 * sent as the resource whose id is entry i. The first three ids of every table
 * differ in steps of 0x10; the fourth id of each Adp table lies in the
 * separate 0x0102.... range. Read-only for callers.
 */
/** Per-cluster target loads (3 entries), used by getTargetLoadList. */
extern int32_t opCodeTargetLoad[3];
/** Game adaptation, first group: processor core boost (4 entries). */
extern int32_t opCodeAdpXpuCoreBoost[4];
/** Game adaptation, second group: processor core limit (4 entries). */
extern int32_t opCodeAdpXpuCoreLimit[4];
/** Game adaptation, third group: processor frequency boost (4 entries). */
extern int32_t opCodeAdpXpuFreqBoost[4];
/** Game adaptation, fourth group: processor frequency limit (4 entries). */
extern int32_t opCodeAdpXpuFreqLimit[4];

/*
 * Wrappers. Exported with unmangled names (C linkage) but taking C++
 * arguments. They run on the caller's thread, take no lock of their own and
 * reach the service only through the event API (zel.h), which reports and
 * logs the service's failures, and relays on the calling thread a listener
 * delivery that the service makes from inside the call. Their own lines go to
 * the Android log with tag "[ZEL_CLIENT_WRAPPER]".
 */
extern "C" {

/**
 * Acquires an event by action name.
 *
 * @param eventId  "TALVEN_" followed by an entry of gActionList, e.g.
 *                 "TALVEN_ACTION_LAUNCH". The name is the text after its
 *                 first seven characters, compared exactly (case-sensitive);
 *                 the first entry with that name gives the event id.
 * @param scene    sent as the package text.
 * @param identity sent as the identity text.
 * @param timeout  duration of the request, passed on unchanged.
 * @return what ZelEventAcquire returned (a handle for ZelReleaseWapper, or
 *         -1), or -1 without calling the service when no action matches.
 */
int32_t ZelEventAcquireWrapper(const std::string& eventId, const std::string& scene,
                               const std::string& identity, int32_t timeout);

/** Releases a handle that ZelEventAcquireWrapper returned: ZelRelease(handle). */
void ZelReleaseWapper(int32_t handle);

/**
 * The framework's single entry for state notifications: from the source
 * number `src` and the `type` it chooses a service rule, builds the rule's
 * resource list where the rule takes one (from `value` or, through the list
 * builders below, from `text`) and calls zelRuleCtl. Combinations the rule
 * table does not know call nothing.
 *
 * @param info    only logged.
 * @param src     the source number that selects the rule.
 * @param type    the notification's type (mostly 0 end/off, 1 begin/on).
 * @param value   a number that some rules carry.
 * @param unused1 accepted and ignored.
 * @param unused2 accepted and ignored.
 * @param text    the text the list builders parse.
 * @return 0, always; the service's failures are only logged.
 */
int32_t ZelNotifyWapper(const std::string& info, int32_t src, int32_t type, int32_t value,
                        int64_t unused1, int64_t unused2, const std::string& text);

}  // extern "C"

/*
 * Resource list builders: pure functions of their arguments and of the opcode
 * tables above, safe on any thread. Malformed text never fails: fields that
 * do not fit are skipped, numbers that do not parse count as 0, and fields
 * beyond the size of an opcode table are ignored. Every record they make has
 * its value present. They do not log. Ordinary C++ names.
 */

/** A record with `id` and a present copy of `value`. */
ZelClient::Resource ZelResourceInfo(int32_t id, const std::string& value);

/**
 * Per-cluster target loads, entry i of opCodeTargetLoad for the i-th field.
 * Plain form "1200,1500,1800": each field is the value. Paired form, chosen
 * whenever the text holds a "-" anywhere, "0-1200,1-1500": the part after the
 * "-" is the value and fields without one are skipped. Empty text: empty list.
 */
std::vector<ZelClient::Resource> getTargetLoadList(const std::string& text);

/**
 * Task-placement hints "key:value,...": "colocation:v" gives (0x01011040, v);
 * "groupmigrate:a-b" gives (0x01010FB0, a) then (0x01010FC0, b) when a > b
 * and neither is -1. Other keys and malformed fields are skipped.
 */
std::vector<ZelClient::Resource> getColocationList(const std::string& text);

/**
 * Game adaptation: up to four ";"-separated groups of ","-separated values,
 * for opCodeAdpXpuCoreBoost, ...CoreLimit, ...FreqBoost and ...FreqLimit in
 * that order; values are trimmed. A group without a "," is skipped whole.
 */
std::vector<ZelClient::Resource> getGameAdpList(const std::string& text);

/**
 * Game upgrade: (0x01011040, level) when `level` is 1 or more, then
 * (0x010115B0, text) when `text` is not empty. The other integers are
 * accepted and ignored.
 */
std::vector<ZelClient::Resource> getGameUpgradeList(int32_t unused1, int32_t unused2, int32_t level,
                                                    int32_t unused3, int32_t unused4,
                                                    const std::string& text);

/**
 * Clears the game upgrade mode: zelRuleCtl(ruleId, status, list) with the two
 * records (0x01011040, "-1") and (0x01011040, ""). The result is ignored.
 */
void clrGameUpgradeMode(int32_t ruleId, int32_t status);
