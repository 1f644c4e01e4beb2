// The texts a client reads in bulk: the value text of an l2Lookup entry and of the widest entry of
// the catalog (egressMirrorSession, two 128-bit fields and their masks), each read through the
// driver model, and the schema text of finalDropControl, the longest; each beside a formatter
// written by hand for that one table, without the printf family. Goal: within 1.5 times.
#include <benchmark/benchmark.h>

#include <cstring>

extern "C" {
#include "corvin_switch/pd.h"
#include "drv/model.h"
}

namespace {

constexpr uint32_t kSess = 1;
constexpr p4_pd_dev_target_t kTgt = {0, 0xFFFF};

char *put(char *o, const char *s) {
  size_t n = std::strlen(s);
  std::memcpy(o, s, n);
  return o + n;
}

char *hex(char *o, uint32_t v, int d) {
  static constexpr char k[] = "0123456789abcdef";
  *o++ = '0', *o++ = 'x';
  for (int i = d - 1; i >= 0; --i) o[i] = k[v & 0xF], v >>= 4;
  o += d;
  *o++ = ',';
  return o;
}

char *hex128(char *o, const uint8_t *b) {
  static constexpr char k[] = "0123456789ABCDEF";
  *o++ = '0', *o++ = 'x';
  for (int i = 0; i < 16; ++i) *o++ = k[b[i] >> 4], *o++ = k[b[i] & 0xF];
  *o++ = ',';
  return o;
}

char *dec(char *o, int32_t v) {
  char d[11];
  int n = 0;
  uint32_t u = v < 0 ? 0u - uint32_t(v) : uint32_t(v);
  if (v < 0) *o++ = '-';
  do d[n++] = char('0' + u % 10);
  while ((u /= 10) != 0);
  while (n) *o++ = d[--n];
  return o;
}

// ---- l2Lookup ----

uint32_t l2_entry() {
  drvm_reset();
  p4_pd_corvin_switch_init();
  drvm_set_recording(0);
  p4_pd_corvin_switch_l2Lookup_match_spec_t k = {0x00aabb, 0x00ccdd, 0x0123};
  p4_pd_corvin_switch_l2LookupKnownUcast_action_spec_t a = {0x123};
  uint32_t h = 0;
  p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupKnownUcast(kSess, kTgt, &k, &a, &h);
  return h;
}

__attribute__((noinline)) int hand_l2(uint8_t dev, uint32_t h, char *buf) {
  p4_pd_corvin_switch_l2Lookup_match_spec_t k;
  char name[128];
  p4_pd_corvin_switch_action_spec_t spec;
  p4_pd_corvin_switch_action_enum_t number;
  uint8_t dflt = 0;
  if (p4_pd_corvin_switch_l2Lookup_get_entry(kSess, dev, h, 0, &k, name, &spec.u, &number, &dflt)) return 0;
  char *o = put(buf, "((");
  if (dflt) {
    o = put(o, "(),");
  } else {
    o = put(o, "( ");
    o = hex(o, k.egrMd_dmacOui & 0xFFFFFF, 6);
    o = hex(o, k.egrMd_dmacStation & 0xFFFFFF, 6);
    o = hex(o, k.egrMd_egrL2Domain & 0x1FFF, 4);
    o = put(o, "),");
  }
  if (number != p4_pd_corvin_switch_l2LookupKnownUcast) return 0;  // the other actions: not benchmarked
  o = put(o, "('l2LookupKnownUcast',(");
  o = hex(o, spec.u.p4_pd_corvin_switch_l2LookupKnownUcast.action_egrL2Aintf & 0x1FFFFF, 6);
  o = put(o, ")),),(0,True))");
  *o = '\0';
  return int(o - buf);
}

void BM_L2LookupValue_Library(benchmark::State &bm) {
  uint32_t h = l2_entry();
  char buf[400];
  for (auto _ : bm) benchmark::DoNotOptimize(p4_pd_corvin_switch_l2Lookup_value(kSess, 0, h, 0, buf));
  if (std::strcmp(buf, "((( 0x00aabb,0x00ccdd,0x0123,),('l2LookupKnownUcast',(0x000123,)),),(0,True))") != 0)
    bm.SkipWithError(buf);
}
BENCHMARK(BM_L2LookupValue_Library);

void BM_L2LookupValue_Hand(benchmark::State &bm) {
  uint32_t h = l2_entry();
  char buf[400];
  for (auto _ : bm) benchmark::DoNotOptimize(hand_l2(0, h, buf));
  if (std::strcmp(buf, "((( 0x00aabb,0x00ccdd,0x0123,),('l2LookupKnownUcast',(0x000123,)),),(0,True))") != 0)
    bm.SkipWithError(buf);
}
BENCHMARK(BM_L2LookupValue_Hand);

// ---- egressMirrorSession: the widest entry ----

uint32_t wide_entry() {
  drvm_reset();
  p4_pd_corvin_switch_init();
  drvm_set_recording(0);
  p4_pd_corvin_switch_egressMirrorSession_match_spec_t k;
  std::memset(&k, 0xFF, sizeof k);
  p4_pd_corvin_switch_setEgressMirrorSession_action_spec_t a = {0x3FF};
  uint32_t h = 0;
  p4_pd_corvin_switch_egressMirrorSession_table_add_with_setEgressMirrorSession(kSess, kTgt, &k, 0xFFFFFFFF, &a, &h);
  return h;
}

__attribute__((noinline)) int hand_wide(uint8_t dev, uint32_t h, char *buf) {
  p4_pd_corvin_switch_egressMirrorSession_match_spec_t k;
  uint32_t prio = 0;
  char name[128];
  p4_pd_corvin_switch_action_spec_t spec;
  p4_pd_corvin_switch_action_enum_t number;
  uint8_t dflt = 0;
  if (p4_pd_corvin_switch_egressMirrorSession_get_entry(kSess, dev, h, 0, &k, &prio, name, &spec.u, &number, &dflt))
    return 0;
  char *o = put(buf, "((");
  if (dflt) {
    o = put(o, "(),");
  } else {
    o = put(o, "( ");
    o = hex(o, k.egrMd_egressPort & 0x1FF, 3), o = hex(o, k.egrMd_egressPort_mask & 0x1FF, 3);
    o = hex(o, k.egrMd_egrL2Domain & 0x1FFF, 4), o = hex(o, k.egrMd_egrL2Domain_mask & 0x1FFF, 4);
    o = hex(o, k.outerIpv4Hdr_valid & 1, 1), o = hex(o, k.outerIpv4Hdr_valid_mask & 1, 1);
    o = hex(o, k.outerIpv6Hdr_valid & 1, 1), o = hex(o, k.outerIpv6Hdr_valid_mask & 1, 1);
    o = hex128(o, k.outerIpv6Hdr_dip), o = hex128(o, k.outerIpv6Hdr_dip_mask);
    o = hex128(o, k.outerIpv6Hdr_sip), o = hex128(o, k.outerIpv6Hdr_sip_mask);
    o = hex(o, k.outerIpv4Hdr_dip, 8), o = hex(o, k.outerIpv4Hdr_dip_mask, 8);
    o = hex(o, k.outerIpv4Hdr_sip, 8), o = hex(o, k.outerIpv4Hdr_sip_mask, 8);
    o = hex(o, k.l4PortHdr_dstPort, 4), o = hex(o, k.l4PortHdr_dstPort_mask, 4);
    o = hex(o, k.l4PortHdr_srcPort, 4), o = hex(o, k.l4PortHdr_srcPort_mask, 4);
    o = hex(o, k.outerIpv4Hdr_protocol, 2), o = hex(o, k.outerIpv4Hdr_protocol_mask, 2);
    o = hex(o, k.outerIpv6Hdr_nextHdr, 2), o = hex(o, k.outerIpv6Hdr_nextHdr_mask, 2);
    o = hex(o, k.haloKeyOrig_isFrag & 1, 1), o = hex(o, k.haloKeyOrig_isFrag_mask & 1, 1);
    o = put(o, "),");
  }
  if (number != p4_pd_corvin_switch_setEgressMirrorSession) return 0;  // the other action: not benchmarked
  o = put(o, "('setEgressMirrorSession',(");
  o = hex(o, spec.u.p4_pd_corvin_switch_setEgressMirrorSession.action_sessionId & 0x3FF, 3);
  o = put(o, ")),),(");
  o = dec(o, int32_t(prio));
  o = put(o, ",True))");
  *o = '\0';
  return int(o - buf);
}

void BM_WidestValue_Library(benchmark::State &bm) {
  uint32_t h = wide_entry();
  char buf[400], hand[400];
  for (auto _ : bm) benchmark::DoNotOptimize(p4_pd_corvin_switch_egressMirrorSession_value(kSess, 0, h, 0, buf));
  if (hand_wide(0, h, hand) != int(std::strlen(buf)) || std::strcmp(buf, hand) != 0) bm.SkipWithError(buf);
}
BENCHMARK(BM_WidestValue_Library);

void BM_WidestValue_Hand(benchmark::State &bm) {
  uint32_t h = wide_entry();
  char buf[400];
  for (auto _ : bm) benchmark::DoNotOptimize(hand_wide(0, h, buf));
}
BENCHMARK(BM_WidestValue_Hand);

// ---- finalDropControl's schema, the longest text ----

// The hand version joins the same literals: the key's, made once, and the action's.
__attribute__((noinline)) int hand_schema(char *buf) {
  static const char *key = p4_pd_corvin_switch_finalDropControl_match_spec_schema();
  char *o = put(buf, "( ('finalDropControl','mat',(False,)),");
  o = put(o, key);
  o = put(o, ",(");
  static const char *const actions[] = {
      p4_pd_corvin_switch_accept_schema(), p4_pd_corvin_switch_acceptLog_schema(),
      p4_pd_corvin_switch_dropCount_schema(), p4_pd_corvin_switch_dropCountAndLog_schema(),
      p4_pd_corvin_switch_finalDrop_schema()};
  for (const char *a : actions) o = put(o, a), *o++ = ',';
  o = put(o, "))");
  *o = '\0';
  return int(o - buf);
}

void BM_FinalDropControlSchema_Library(benchmark::State &bm) {
  char buf[4096];
  for (auto _ : bm) benchmark::DoNotOptimize(p4_pd_corvin_switch_finalDropControl_schema(buf));
}
BENCHMARK(BM_FinalDropControlSchema_Library);

void BM_FinalDropControlSchema_Hand(benchmark::State &bm) {
  char buf[4096], lib[4096];
  for (auto _ : bm) benchmark::DoNotOptimize(hand_schema(buf));
  p4_pd_corvin_switch_finalDropControl_schema(lib);
  if (std::strcmp(buf, lib) != 0) bm.SkipWithError("the hand version's text differs");
}
BENCHMARK(BM_FinalDropControlSchema_Hand);

}  // namespace
