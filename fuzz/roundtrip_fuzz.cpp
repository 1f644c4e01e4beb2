// The encoders and decoders of every table and action, through the driver model: a record from the
// input is encoded by the library's add (the images the driver receives must be those of the
// encoding rules), read back by get_entry (the record must come back with exactly the losses the
// decoding rules allow), found again by its key, changed, and deleted. Also default entries,
// profile members, entries bound to members and groups, and the exported decoders on arbitrary
// images.
//
// Input: a mode byte, a row index (16 bits), then the records' bytes and the numbers each mode
// reads, in the order the code below reads them; whatever the input lacks reads as zeros.
#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz_support.h"
#include "ref_codec.h"

namespace {

using namespace fz;

struct Pair {
  const Table *table;
  const TableAction *action;
};

std::vector<Pair> g_entry_pairs, g_default_pairs;
std::vector<const Table *> g_bound_tables, g_keyed_tables;
std::vector<std::pair<const Profile *, const ProfileMember *>> g_members;
// The resource handle of each index-bearing action, by action number (0: none).
std::vector<uint32_t> g_index_resource;

// A key record from the input; an lpm table's prefix length is, every other time, drawn among the
// legal ones and the first illegal one, which the raw 16 bits rarely are.
void read_key(Input &in, const Table &t, uint8_t *key) {
  std::memset(key, 0, kRecordMax);
  in.bytes(key, t.record_size);
  if (t.kind == Kind::lpm) {
    const Field &f = t.fields[t.nfields - 1];
    uint16_t p = in.u16();
    if (p & 1) p = static_cast<uint16_t>((p >> 1) % (f.width + 2));
    else p = static_cast<uint16_t>(p >> 1 | (p & 0x8000));
    store(key, f.aux_off, 2, p);
  }
}

void read_params(Input &in, const Action &a, uint8_t *params) {
  std::memset(params, 0, kRecordMax);
  in.bytes(params, a.record_size);
}

p4_pd_meter_spec_t read_meter(Input &in) {
  p4_pd_meter_spec_t m;
  m.cir = in.u32();
  m.cburst = in.u32();
  m.pir = in.u32();
  m.pburst = in.u32();
  m.meter_type = in.bit() ? PD_METER_TYPE_COLOR_UNAWARE : PD_METER_TYPE_COLOR_AWARE;
  return m;
}

const drvm_call_t &last_call(const char *fn) {
  const drvm_call_t *c = drvm_last_call(fn);
  FZ_CHECK(c != nullptr, "no %s reached the driver", fn);
  return *c;
}

// The match record the driver received against the encoding rules.
void check_match_record(const Table &t, const pipe_tbl_match_spec_t &ms, const ref::KeyImages &want, const char *what) {
  FZ_CHECK(ms.num_match_bytes == t.key_bytes && ms.num_valid_match_bits == t.key_bits,
           "%s %s: key word %u/%u, want %u/%u", t.name, what, ms.num_match_bytes, ms.num_valid_match_bits,
           t.key_bytes, t.key_bits);
  FZ_CHECK(ms.priority == want.priority, "%s %s: priority %u, want %u", t.name, what, ms.priority, want.priority);
  FZ_CHECK(ms.partition_index == want.partition, "%s %s: partition %u, want %u", t.name, what, ms.partition_index,
           want.partition);
  if (t.key_bytes == 0) return;
  FZ_CHECK(ms.match_value_bytes && ms.match_mask_bytes, "%s %s: no images", t.name, what);
  FZ_CHECK(std::memcmp(ms.match_value_bytes, want.value.data(), t.key_bytes) == 0, "%s %s: value %s, want %s", t.name,
           what, hex(ms.match_value_bytes, t.key_bytes).c_str(), hex(want.value.data(), t.key_bytes).c_str());
  FZ_CHECK(std::memcmp(ms.match_mask_bytes, want.mask.data(), t.key_bytes) == 0, "%s %s: mask %s, want %s", t.name,
           what, hex(ms.match_mask_bytes, t.key_bytes).c_str(), hex(want.mask.data(), t.key_bytes).c_str());
}

void check_action_record(const Table &t, const TableAction &ta, const pipe_action_spec_t &as, const uint8_t *params,
                         const char *what) {
  const Action &a = *ta.action;
  std::vector<uint8_t> img = ref::encode_action(a, params, ta.index_param, ta.index_in_image);
  FZ_CHECK(as.action_data_type == PIPE_ACTION_DATA_TYPE, "%s/%s %s: action data type %u", t.name, a.name, what,
           as.action_data_type);
  FZ_CHECK(as.act_data.num_valid_action_data_bits == ref::action_bits(a) && as.act_data.num_action_data_bytes == img.size(),
           "%s/%s %s: action word %u/%u, want %u/%zu", t.name, a.name, what, as.act_data.num_action_data_bytes,
           as.act_data.num_valid_action_data_bits, ref::action_bits(a), img.size());
  FZ_CHECK(as.act_data.action_data_bytes != nullptr, "%s/%s %s: no action image", t.name, a.name, what);
  FZ_CHECK(img.empty() || std::memcmp(as.act_data.action_data_bytes, img.data(), img.size()) == 0,
           "%s/%s %s: action image %s, want %s", t.name, a.name, what,
           hex(as.act_data.action_data_bytes, img.size()).c_str(), hex(img.data(), img.size()).c_str());
}

// The key record read back, checked two ways: against the decoding of the images the encoding rules
// give, and against the losses the decoding rules name, taken from the original record alone.
void check_key_read_back(const Table &t, const uint8_t *orig, const ref::KeyImages &im, const uint8_t *got) {
  alignas(16) uint8_t from_images[kRecordMax], by_losses[kRecordMax];
  ref::decode_key(t, im.value.data(), im.mask.data(), im.partition, from_images);
  ref::expected_after_round_trip(t, orig, by_losses);
  FZ_CHECK(std::memcmp(from_images, by_losses, t.record_size) == 0,
           "%s: the two expectations disagree (images %s, losses %s, original %s)", t.name,
           hex(from_images, t.record_size).c_str(), hex(by_losses, t.record_size).c_str(),
           hex(orig, t.record_size).c_str());
  FZ_CHECK(std::memcmp(got, by_losses, t.record_size) == 0, "%s: key read back %s, want %s (original %s)", t.name,
           hex(got, t.record_size).c_str(), hex(by_losses, t.record_size).c_str(), hex(orig, t.record_size).c_str());
}

// A table action's parameters as read back after an add (index from the resource's low 16 bits) or
// a modify (the whole index).
void expected_params(const TableAction &ta, const uint8_t *params, bool after_add, uint8_t *out) {
  const Action &a = *ta.action;
  std::vector<uint8_t> img = ref::encode_action(a, params, -1, true);
  uint32_t index = 0;
  if (ta.index_param >= 0) {
    const Param &p = a.params[ta.index_param];
    index = load(params, p.off, p.member_bytes);
    if (after_add) index &= 0xFFFF;
  }
  ref::decode_action(a, img.data(), out, ta.index_param, ta.index_in_image, index);
}

constexpr uint8_t kParamFill = 0xA5;

// Reads an entry of a table that holds actions and checks it all.
void check_entry(const Table &t, p4_pd_entry_hdl_t h, const uint8_t *orig_key, const ref::KeyImages &im,
                 uint32_t prio, const TableAction &ta, const uint8_t *params, bool after_add, uint8_t hw) {
  const Action &a = *ta.action;
  alignas(16) uint8_t key[kRecordMax], got[kRecordMax];
  std::memset(key, 0x5A, sizeof key);
  std::memset(got, kParamFill, sizeof got);
  uint32_t got_prio = 0xDEADBEEF;
  char name[160];
  std::memset(name, 0x7F, sizeof name);
  p4_pd_corvin_switch_action_enum_t number = p4_pd_corvin_switch_action_enum_none;
  uint8_t dflt = 9;
  p4_pd_status_t st = t.get_entry(h, hw, key, &got_prio, name, got, &number, &dflt);
  FZ_CHECK(st == 0, "%s: get_entry of %u: status %u", t.name, h, st);
  FZ_CHECK(dflt == 0, "%s: entry read as a default", t.name);
  FZ_CHECK(static_cast<uint32_t>(number) == a.number, "%s: action %d, want %u", t.name, number, a.number);
  std::string want_name = std::string("p4_pd_corvin_switch_") + a.name;
  FZ_CHECK(std::memchr(name, 0, sizeof name) && want_name == name, "%s: action name '%.60s', want %s", t.name, name,
           want_name.c_str());
  if (t.priority) FZ_CHECK(got_prio == prio, "%s: priority %u, want %u", t.name, got_prio, prio);
  if (t.nfields) check_key_read_back(t, orig_key, im, key);
  if (a.nparams) {
    alignas(16) uint8_t want[kRecordMax];
    expected_params(ta, params, after_add, want);
    FZ_CHECK(std::memcmp(got, want, a.record_size) == 0, "%s/%s: parameters read back %s, want %s", t.name, a.name,
             hex(got, a.record_size).c_str(), hex(want, a.record_size).c_str());
    for (size_t i = a.record_size; i < kRecordMax; ++i)
      FZ_CHECK(got[i] == kParamFill, "%s/%s: written past the parameter record", t.name, a.name);
  } else {
    for (size_t i = 0; i < kRecordMax; ++i)
      FZ_CHECK(got[i] == kParamFill, "%s/%s: an action without parameters wrote the parameter buffer", t.name, a.name);
  }
}

uint32_t count_of(const Table &t) {
  uint32_t n = 0xFFFFFFFF;
  p4_pd_status_t st = t.count(&n);
  FZ_CHECK(st == 0, "%s: get_entry_count status %u", t.name, st);
  return n;
}

void entry_round_trip(Input &in) {
  const Pair &pr = g_entry_pairs[in.u16() % g_entry_pairs.size()];
  const Table &t = *pr.table;
  const TableAction &ta = *pr.action;
  alignas(16) uint8_t key[kRecordMax], params[kRecordMax];
  read_key(in, t, key);
  uint32_t prio = in.u32();
  read_params(in, *ta.action, params);
  p4_pd_meter_spec_t meter = read_meter(in);
  uint32_t ttl = in.u32();
  uint8_t hw = in.u8() & 1;
  uint8_t flow = in.u8();

  p4_pd_entry_hdl_t h = 0;
  p4_pd_status_t st = ta.add(key, prio, params, &meter, ttl, &h);
  FZ_CHECK(st == 0, "%s/%s: add status %u", t.name, ta.action->name, st);
  ref::KeyImages im = ref::encode_key(t, key, prio);
  const drvm_call_t &c = last_call("pipe_mgr_mat_ent_add");
  FZ_CHECK(c.tbl_hdl == t.handle && c.act_fn_hdl == ta.handle, "%s/%s: add went to 0x%x/0x%x", t.name,
           ta.action->name, c.tbl_hdl, c.act_fn_hdl);
  check_match_record(t, c.match, im, "add");
  check_action_record(t, ta, c.action, params, "add");
  check_entry(t, h, key, im, prio, ta, params, true, hw);

  // The same key finds the same entry.
  p4_pd_entry_hdl_t found = 0;
  st = t.find(key, prio, &found);
  FZ_CHECK(st == 0 && found == h, "%s: match_spec_to_entry_hdl status %u handle %u, want %u", t.name, st, found, h);
  check_match_record(t, last_call("pipe_mgr_match_spec_to_ent_hdl").match, im, "match_spec_to_entry_hdl");

  // Another entry action of the table, by handle or by key; the key stays.
  if (flow & 1) {
    std::vector<const TableAction *> others;
    for (uint8_t i = 0; i < t.nactions; ++i)
      if (t.actions[i].entry) others.push_back(&t.actions[i]);
    const TableAction &tb = *others[in.u8() % others.size()];
    alignas(16) uint8_t params2[kRecordMax];
    read_params(in, *tb.action, params2);
    p4_pd_meter_spec_t meter2 = read_meter(in);
    bool by_key = flow & 4;
    st = by_key ? tb.modify_by_key(key, prio, params2, &meter2) : tb.modify(h, params2, &meter2);
    FZ_CHECK(st == 0, "%s/%s: modify%s status %u", t.name, tb.action->name, by_key ? " by key" : "", st);
    const drvm_call_t &m = last_call(by_key ? "pipe_mgr_mat_ent_set_action_by_match_spec" : "pipe_mgr_mat_ent_set_action");
    if (by_key) check_match_record(t, m.match, im, "modify_by_match_spec");
    FZ_CHECK(m.act_fn_hdl == tb.handle, "%s/%s: modify sent action 0x%x", t.name, tb.action->name, m.act_fn_hdl);
    check_action_record(t, tb, m.action, params2, "modify");
    check_entry(t, h, key, im, prio, tb, params2, false, hw);
  }

  if (flow & 2) {
    st = t.del_by_key(key, prio);
    FZ_CHECK(st == 0, "%s: delete_by_match_spec status %u", t.name, st);
    check_match_record(t, last_call("pipe_mgr_mat_ent_del_by_match_spec").match, im, "delete_by_match_spec");
  } else {
    st = t.del(h);
    FZ_CHECK(st == 0, "%s: delete status %u", t.name, st);
  }
  FZ_CHECK(count_of(t) == 0, "%s: an entry is left after the delete", t.name);
}

void default_round_trip(Input &in) {
  const Pair &pr = g_default_pairs[in.u16() % g_default_pairs.size()];
  const Table &t = *pr.table;
  const TableAction &ta = *pr.action;
  const Action &a = *ta.action;
  alignas(16) uint8_t params[kRecordMax];
  read_params(in, a, params);
  p4_pd_meter_spec_t meter = read_meter(in);
  uint8_t hw = in.u8() & 1;
  p4_pd_entry_hdl_t h = 0;
  p4_pd_status_t st = ta.set_default(params, &meter, &h);
  FZ_CHECK(st == 0, "%s/%s: set_default status %u", t.name, a.name, st);
  check_action_record(t, ta, last_call("pipe_mgr_mat_default_entry_set").action, params, "set_default");

  alignas(16) uint8_t want[kRecordMax];
  expected_params(ta, params, false, want);
  p4_pd_corvin_switch_action_spec_t spec;
  std::memset(&spec, kParamFill, sizeof spec);
  st = t.get_default(&spec);
  FZ_CHECK(st == 0, "%s: table_get_default_entry status %u", t.name, st);
  FZ_CHECK(static_cast<uint32_t>(spec.name) == a.number, "%s: default action %d, want %u", t.name, spec.name, a.number);
  if (a.nparams)
    FZ_CHECK(std::memcmp(&spec.u, want, a.record_size) == 0, "%s/%s: default parameters %s, want %s", t.name, a.name,
             hex(&spec.u, a.record_size).c_str(), hex(want, a.record_size).c_str());

  // The default entry by its handle: the flag set, the key record cleared.
  alignas(16) uint8_t key[kRecordMax], got[kRecordMax];
  std::memset(key, 0x5A, sizeof key);
  std::memset(got, kParamFill, sizeof got);
  uint32_t prio = 0xDEADBEEF;
  p4_pd_corvin_switch_action_enum_t number = p4_pd_corvin_switch_action_enum_none;
  uint8_t dflt = 9;
  st = t.get_entry(h, hw, t.nfields ? key : nullptr, &prio, nullptr, got, &number, &dflt);
  FZ_CHECK(st == 0, "%s: get_entry of the default entry: status %u", t.name, st);
  FZ_CHECK(dflt == 1, "%s: the default entry read with flag %u", t.name, dflt);
  FZ_CHECK(static_cast<uint32_t>(number) == a.number, "%s: default entry's action %d", t.name, number);
  if (t.priority) FZ_CHECK(prio == 0, "%s: default entry's priority %u", t.name, prio);
  for (size_t i = 0; i < t.record_size; ++i)
    FZ_CHECK(key[i] == 0, "%s: the default entry's key record is not cleared: %s", t.name, hex(key, t.record_size).c_str());
  for (size_t i = t.record_size; i < kRecordMax; ++i)
    FZ_CHECK(key[i] == 0x5A, "%s: written past the key record", t.name);
  if (a.nparams)
    FZ_CHECK(std::memcmp(got, want, a.record_size) == 0, "%s/%s: default entry parameters %s, want %s", t.name, a.name,
             hex(got, a.record_size).c_str(), hex(want, a.record_size).c_str());
  st = t.reset_default();
  FZ_CHECK(st == 0, "%s: reset_default_entry status %u", t.name, st);
}

// A member of a profile, made, read back and deleted.
void member_round_trip(Input &in) {
  const auto &pm = g_members[in.u16() % g_members.size()];
  const Profile &p = *pm.first;
  const Action &a = *pm.second->action;
  alignas(16) uint8_t params[kRecordMax];
  read_params(in, a, params);
  uint8_t hw = in.u8() & 1;
  p4_pd_mbr_hdl_t m = 0;
  p4_pd_status_t st = pm.second->add(params, &m);
  FZ_CHECK(st == 0, "%s/%s: add_member status %u", p.name, a.name, st);
  const drvm_call_t &c = last_call("pipe_mgr_adt_ent_add");
  FZ_CHECK(c.tbl_hdl == p.adt_handle && c.act_fn_hdl == pm.second->handle, "%s/%s: member went to 0x%x/0x%x", p.name,
           a.name, c.tbl_hdl, c.act_fn_hdl);
  std::vector<uint8_t> img = ref::encode_action(a, params, -1, true);
  FZ_CHECK(c.action.act_data.num_action_data_bytes == img.size() &&
               (img.empty() || std::memcmp(c.action.act_data.action_data_bytes, img.data(), img.size()) == 0),
           "%s/%s: member image %s, want %s", p.name, a.name,
           hex(c.action.act_data.action_data_bytes, c.action.act_data.num_action_data_bytes).c_str(),
           hex(img.data(), img.size()).c_str());
  p4_pd_corvin_switch_action_spec_t spec;
  std::memset(&spec, kParamFill, sizeof spec);
  st = p.get_member(m, hw, &spec);
  FZ_CHECK(st == 0, "%s: get_member status %u", p.name, st);
  FZ_CHECK(static_cast<uint32_t>(spec.name) == a.number, "%s: member's action %d, want %u", p.name, spec.name, a.number);
  if (a.nparams) {
    alignas(16) uint8_t want[kRecordMax];
    ref::decode_action(a, img.data(), want, -1, true, 0);
    // The members are cleared one by one as they are written: bytes between them stay as they were.
    const uint8_t *got = reinterpret_cast<const uint8_t *>(&spec.u);
    for (uint8_t i = 0; i < a.nparams; ++i) {
      const Param &pa = a.params[i];
      FZ_CHECK(std::memcmp(got + pa.off, want + pa.off, pa.member_bytes) == 0, "%s/%s: member parameter %s %s, want %s",
               p.name, a.name, pa.name, hex(got + pa.off, pa.member_bytes).c_str(),
               hex(want + pa.off, pa.member_bytes).c_str());
    }
    size_t end = a.params[a.nparams - 1].off + a.params[a.nparams - 1].member_bytes;
    for (size_t i = end; i < sizeof spec.u; ++i)
      FZ_CHECK(got[i] == kParamFill, "%s/%s: written past the parameters", p.name, a.name);
  } else {
    const uint8_t *got = reinterpret_cast<const uint8_t *>(&spec.u);
    for (size_t i = 0; i < sizeof spec.u; ++i)
      FZ_CHECK(got[i] == kParamFill, "%s/%s: a member without parameters wrote its record", p.name, a.name);
  }
  st = p.del_member(m);
  FZ_CHECK(st == 0, "%s: del_member status %u", p.name, st);
}

// An entry of a table bound to a profile, on a member or on a group of one member.
void bound_round_trip(Input &in) {
  const Table &t = *g_bound_tables[in.u16() % g_bound_tables.size()];
  const Profile &p = *t.profile;
  const ProfileMember &pm = p.members[in.u8() % p.nmembers];
  alignas(16) uint8_t key[kRecordMax], params[kRecordMax];
  read_key(in, t, key);
  uint32_t prio = in.u32();
  read_params(in, *pm.action, params);
  bool group = in.bit();
  uint32_t group_size = 1 + in.u8() % 8;
  uint8_t hw = in.u8() & 1;
  p4_pd_mbr_hdl_t m = 0;
  p4_pd_status_t st = pm.add(params, &m);
  FZ_CHECK(st == 0, "%s: add_member status %u", p.name, st);
  p4_pd_grp_hdl_t g = 0;
  if (group) {
    st = p.create_group(group_size, &g);
    FZ_CHECK(st == 0, "%s: create_group status %u", p.name, st);
    st = p.add_to_group(g, m);
    FZ_CHECK(st == 0, "%s: add_member_to_group status %u", p.name, st);
  }
  p4_pd_entry_hdl_t h = 0;
  st = t.add_bound(key, prio, group ? g : m, group, &h);
  FZ_CHECK(st == 0, "%s: add_entry%s status %u", t.name, group ? "_with_selector" : "", st);
  ref::KeyImages im = ref::encode_key(t, key, prio);
  const drvm_call_t &c = last_call("pipe_mgr_mat_ent_add");
  check_match_record(t, c.match, im, "add_entry");
  FZ_CHECK(c.act_fn_hdl == pm.handle, "%s: bound entry's action 0x%x, want the member's 0x%x", t.name, c.act_fn_hdl,
           pm.handle);

  alignas(16) uint8_t got[kRecordMax];
  std::memset(got, 0x5A, sizeof got);
  uint32_t got_prio = 0xDEADBEEF;
  uint8_t is_mbr = 9, is_grp = 9, dflt = 9;
  p4_pd_grp_hdl_t got_g = 0xEEEEEEEE;
  p4_pd_mbr_hdl_t got_m = 0xEEEEEEEE;
  st = t.get_bound_entry(h, hw, got, &got_prio, &is_mbr, &is_grp, &got_g, &got_m, &dflt);
  FZ_CHECK(st == 0, "%s: get_entry status %u", t.name, st);
  FZ_CHECK(dflt == 0, "%s: bound entry read as a default", t.name);
  if (t.priority) FZ_CHECK(got_prio == prio, "%s: priority %u, want %u", t.name, got_prio, prio);
  check_key_read_back(t, key, im, got);
  if (group) FZ_CHECK(is_mbr == 0 && is_grp == 1 && got_g == g, "%s: read %u/%u group %u, want the group %u", t.name,
                      is_mbr, is_grp, got_g, g);
  else FZ_CHECK(is_mbr == 1 && is_grp == 0 && got_m == m, "%s: read %u/%u member %u, want the member %u", t.name,
                is_mbr, is_grp, got_m, m);
  p4_pd_entry_hdl_t found = 0;
  st = t.find(key, prio, &found);
  FZ_CHECK(st == 0 && found == h, "%s: match_spec_to_entry_hdl status %u", t.name, st);
  st = t.del(h);
  FZ_CHECK(st == 0, "%s: delete status %u", t.name, st);
  if (group) {
    st = p.del_group(g);
    FZ_CHECK(st == 0, "%s: del_group status %u", p.name, st);
  }
  st = p.del_member(m);
  FZ_CHECK(st == 0, "%s: del_member status %u", p.name, st);
}

// The exported decoders on arbitrary images: unbuild_key then unbuild_mask of a table, and
// unbuild_action_spec of an action with an arbitrary resource list.
void decoders(Input &in) {
  if (in.bit()) {
    const Table &t = *g_keyed_tables[in.u16() % g_keyed_tables.size()];
    std::vector<uint8_t> value(t.key_bytes), mask(t.key_bytes);
    in.bytes(value.data(), value.size());
    in.bytes(mask.data(), mask.size());
    pipe_tbl_match_spec_t ms;
    std::memset(&ms, 0, sizeof ms);
    ms.match_value_bytes = value.data();
    ms.match_mask_bytes = mask.data();
    ms.partition_index = in.u32();
    ms.priority = in.u32();
    ms.num_valid_match_bits = t.key_bits;
    ms.num_match_bytes = t.key_bytes;
    pipe_tbl_match_spec_t before = ms;
    std::vector<uint8_t> v0 = value, m0 = mask;
    alignas(16) uint8_t got[kRecordMax], want[kRecordMax];
    std::memset(got, 0x5A, sizeof got);
    t.unbuild_key(&ms, got);
    if (t.unbuild_mask) t.unbuild_mask(&ms, got);
    ref::decode_key(t, value.data(), mask.data(), ms.partition_index, want);
    FZ_CHECK(std::memcmp(got, want, t.record_size) == 0, "unbuild %s of value %s mask %s: %s, want %s", t.name,
             hex(value.data(), value.size()).c_str(), hex(mask.data(), mask.size()).c_str(),
             hex(got, t.record_size).c_str(), hex(want, t.record_size).c_str());
    for (size_t i = t.record_size; i < kRecordMax; ++i)
      FZ_CHECK(got[i] == 0x5A, "unbuild %s: written past the key record", t.name);
    FZ_CHECK(std::memcmp(&before, &ms, sizeof ms) == 0 && v0 == value && m0 == mask,
             "unbuild %s: the driver's record was changed", t.name);
    return;
  }
  const Action &a = kActions[in.u16() % kActionCount];
  if (a.nparams == 0) return;
  size_t bytes = 0;
  for (uint8_t i = 0; i < a.nparams; ++i) bytes += ref::image_bytes(a.params[i].width);
  std::vector<uint8_t> img(bytes);
  in.bytes(img.data(), img.size());
  p4_pd_res_spec_t res[4];
  int nres = in.u8() % 5;
  uint32_t index_resource = g_index_resource[a.number];
  for (int i = 0; i < nres; ++i) {
    res[i].tbl_hdl = in.bit() && index_resource ? index_resource : in.u32();
    res[i].tbl_idx = in.u32();
  }
  pipe_action_data_spec_t data;
  data.num_valid_action_data_bits = static_cast<uint16_t>(ref::action_bits(a));
  data.num_action_data_bytes = static_cast<uint16_t>(bytes);
  data.action_data_bytes = img.data();
  // The index an index-bearing action takes from the list: 0xFFFF for an empty one, else the last
  // index of its resource, 0 if none is.
  int index_param = -1;
  bool in_image = true;
  uint32_t index = 0;
  for (size_t ti = 0; ti < kTableCount && index_param < 0; ++ti)
    for (uint8_t k = 0; k < kTables[ti].nactions; ++k)
      if (kTables[ti].actions[k].action == &a && kTables[ti].actions[k].index_param >= 0) {
        index_param = kTables[ti].actions[k].index_param;
        in_image = kTables[ti].actions[k].index_in_image;
      }
  if (index_param >= 0 && !in_image) {
    index = nres == 0 ? 0xFFFF : 0;
    for (int i = 0; i < nres; ++i)
      if (res[i].tbl_hdl == index_resource) index = res[i].tbl_idx;
  }
  alignas(16) uint8_t got[kRecordMax], want[kRecordMax];
  std::memset(got, 0x5A, sizeof got);
  a.unbuild(&data, nres ? res : nullptr, nres, got);
  ref::decode_action(a, img.data(), want, index_param, in_image, index);
  FZ_CHECK(std::memcmp(got, want, a.record_size) == 0, "unbuild_action_spec_%s of %s: %s, want %s", a.name,
           hex(img.data(), img.size()).c_str(), hex(got, a.record_size).c_str(), hex(want, a.record_size).c_str());
  for (size_t i = a.record_size; i < kRecordMax; ++i)
    FZ_CHECK(got[i] == 0x5A, "unbuild_action_spec_%s: written past the parameter record", a.name);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  start_library(default_algorithm_kind);
  g_index_resource.assign(kActionCount, 0);
  for (size_t i = 0; i < kTableCount; ++i) {
    const Table &t = kTables[i];
    if (t.nfields) g_keyed_tables.push_back(&t);
    if (t.profile) g_bound_tables.push_back(&t);
    for (uint8_t k = 0; k < t.nactions; ++k) {
      const TableAction &ta = t.actions[k];
      if (ta.entry) g_entry_pairs.push_back({&t, &ta});
      if (ta.dflt) g_default_pairs.push_back({&t, &ta});
      if (ta.index_param >= 0) g_index_resource[ta.action->number] = t.resource;
    }
  }
  for (size_t i = 0; i < kProfileCount; ++i)
    for (uint8_t k = 0; k < kProfiles[i].nmembers; ++k) g_members.push_back({&kProfiles[i], &kProfiles[i].members[k]});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  drvm_clear_calls();
  switch (in.u8() % 5) {
    case 0: entry_round_trip(in); break;
    case 1: default_round_trip(in); break;
    case 2: member_round_trip(in); break;
    case 3: bound_round_trip(in); break;
    default: decoders(in); break;
  }
  FZ_CHECK(drvm_log_count() == 0, "the library logged: %s", drvm_log_line(0));
  FZ_CHECK(drvm_live_allocs() == 0, "%zu driver allocations not freed", drvm_live_allocs());
  return 0;
}
