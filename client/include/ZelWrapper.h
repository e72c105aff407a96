/*
 * Wrapper layer of libtarvo-zel-client: framework code names events by action
 * name ("TALVEN_" followed by an entry of gActionList) instead of by number.
 *
 * This header declares the exported tables that the wrappers and the resource
 * list builders are built on. All of them are filled when the library is
 * loaded, before any exported function can run, and never change afterwards,
 * so any thread may read them without a lock.
 */
#pragma once

#include <cstdint>
#include <string>
#include <vector>

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
