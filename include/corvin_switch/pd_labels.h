/** @file
 * Address formatters of the counter labels: each writes "<label> <address>" at dst, NUL-terminated,
 * and returns the number of characters without the terminator. There is no size argument: dst
 * must hold the label, at most 93 characters more and the terminator. A ternary form whose mask is
 * all 0 writes nothing and returns 0. The labels of the counted tables themselves are generated
 * (`p4_pd_corvin_switch_<table>_match_spec_stringify_for_counter`, corvin_switch/pd_reflection.h).
 * Plain C99; valid C++. Included by corvin_switch/pd.h. */
#ifndef CORVIN_SWITCH_PD_LABELS_H
#define CORVIN_SWITCH_PD_LABELS_H

#include "corvin_switch/pd_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** "<label> a.b.c.d ", the most significant byte first. */
P4_PD_EXPORT int p4_pd_corvin_switch__print_v4addr_exact(char *dst, const char *label, uint32_t addr);
/** "<label> a.b.c.d/<prefix_len> ". */
P4_PD_EXPORT int p4_pd_corvin_switch__print_v4addr_lpm(char *dst, const char *label, uint32_t addr,
                                                       uint16_t prefix_len);
/** "<label> a.b.c.d/<n> ", n the count of ones of the mask from bit 31 down to its first 0
 * (0xff00ff00 gives 8, 0x1 gives 0); nothing for mask 0. */
P4_PD_EXPORT int p4_pd_corvin_switch__print_v4addr_ternary(char *dst, const char *label, uint32_t addr, uint32_t mask);
/** "<label> <address>" in the text form of IPv6 addresses, the 16 bytes first byte most significant;
 * no blank at the end. An address that cannot be written shows as "Decode error". */
P4_PD_EXPORT int p4_pd_corvin_switch__print_v6addr_exact(char *dst, const char *label, const uint8_t *addr);
/** "<label> <address>/<prefix_len> ". */
P4_PD_EXPORT int p4_pd_corvin_switch__print_v6addr_lpm(char *dst, const char *label, const uint8_t *addr,
                                                       uint16_t prefix_len);
/** "<label> <address>/<mask> ", the mask in the address's form; nothing when all 16 mask bytes are 0. */
P4_PD_EXPORT int p4_pd_corvin_switch__print_v6addr_ternary(char *dst, const char *label, const uint8_t *addr,
                                                           const uint8_t *mask);
/** "<label> xxxx.xxxx.xxxx " from the 24-bit OUI and station halves. */
P4_PD_EXPORT int p4_pd_corvin_switch__print_mac_exact(char *dst, const char *label, uint32_t oui, uint32_t station);
/** As p4_pd_corvin_switch__print_mac_exact when both masks have their 24 bits set; nothing when both
 * have none; otherwise "<label> xxxx.xxxx.xxxx/xxxx.xxxx.xxxx ", the address and then the mask. */
P4_PD_EXPORT int p4_pd_corvin_switch__print_mac_ternary(char *dst, const char *label, uint32_t oui, uint32_t oui_mask,
                                                        uint32_t station, uint32_t station_mask);

#ifdef __cplusplus
}
#endif

#endif
