// The console's resource commands (counters, meters, registers, hashes, value sets, digests), the
// hardware agreement check of the placement data it keeps, and the model commands that play the
// part of the chip: traffic, time, learning and a soft error.
#include <cinttypes>

#include "console.h"
#include "console_util.h"
#include "drv/model.h"
#include "drv/model_cells.h"
#include "drv/model_telemetry.h"

namespace cvcli {

namespace {

constexpr uint32_t kHashBytes = 4;        // the result hash_calc asks for
constexpr size_t kTextRoom = 4096;        // a hardware agreement text
constexpr uint32_t kMaxPipes = 64;        // register values a read can give

template <class D>
const D &find(const std::unordered_map<std::string_view, const D *> &names, std::string_view name, const char *what,
              const D *all, size_t n) {
  auto it = names.find(name);
  if (it != names.end()) return *it->second;
  std::vector<std::string> list;
  for (size_t i = 0; i < n; ++i) list.push_back(all[i].name);
  throw Error(unknown_name(what, name, "the program", list));
}

std::string counts(const p4_pd_counter_value_t &v) {
  return "packets=" + std::to_string(v.packets) + " bytes=" + std::to_string(v.bytes);
}

// RATE:BURST
void rate_burst(std::string_view text, const char *which, uint32_t *rate, uint32_t *burst) {
  size_t colon = text.find(':');
  if (colon == std::string_view::npos)
    throw Error(std::string(which) + " " + quoted(text) + ": RATE:BURST, as 1000:64");
  *rate = parse_u32(text.substr(0, colon), What{which, "", " rate"});
  *burst = parse_u32(text.substr(colon + 1), What{which, "", " burst"});
}

}  // namespace

// ---- The device: what the driver model needs declared before the resources serve ----

void prepare_model(const CatalogDesc &cat) {
  constexpr uint32_t kCells = 4096;
  for (size_t i = 0; i < cat.ncounters; ++i)
    if (!cat.counters[i].direct) drvm_declare_counter(cat.counters[i].handle, kCells);
  for (size_t i = 0; i < cat.nmeters; ++i) {
    const MeterDesc &m = cat.meters[i];
    if (!m.direct) {
      drvm_declare_meter(m.handle, kCells);
      continue;
    }
    for (size_t t = 0; t < cat.ntables; ++t)
      if (std::strcmp(cat.tables[t].name, m.table) == 0) drvm_declare_direct_meter(cat.tables[t].handle, m.handle);
  }
  for (size_t i = 0; i < cat.nregisters; ++i)
    drvm_declare_register(cat.registers[i].handle, kCells, drvm_num_pipes(), 1, nullptr);
  for (size_t i = 0; i < cat.ndigests; ++i) drvm_declare_digest(cat.digests[i].handle, cat.digests[i].entry_bytes);
  for (size_t i = 0; i < cat.nvalue_sets; ++i) drvm_declare_value_set(cat.value_sets[i].handle, 256, 32);
  // The program's two algorithms: CRC-16 for the VLAN and queue hashes, CRC-32 for the packet hashes.
  for (size_t i = 0; i < cat.nhashes; ++i) {
    const HashDesc &h = cat.hashes[i];
    drvm_declare_hash_algorithm(h.algorithm, (h.algorithm & 1) ? DRVM_HASH_CRC_32 : DRVM_HASH_CRC_16);
    drvm_declare_hash(h.handle, h.input, h.algorithm);
  }
}

const CounterDesc &Console::counter(std::string_view name) const {
  return find(counter_names_, name, "counter", cat_.counters, cat_.ncounters);
}
const MeterDesc &Console::meter(std::string_view name) const {
  return find(meter_names_, name, "meter", cat_.meters, cat_.nmeters);
}
const RegisterDesc &Console::register_desc(std::string_view name) const {
  return find(register_names_, name, "register", cat_.registers, cat_.nregisters);
}
const ValueSetDesc &Console::value_set(std::string_view name) const {
  return find(value_set_names_, name, "parser value set", cat_.value_sets, cat_.nvalue_sets);
}
const HashDesc &Console::hash(std::string_view name) const {
  return find(hash_names_, name, "dynamic hash", cat_.hashes, cat_.nhashes);
}
const DigestDesc &Console::digest(std::string_view name) const {
  return find(digest_names_, name, "learning digest", cat_.digests, cat_.ndigests);
}

void Console::resource_cell(bool direct, std::string_view text, Call *c) const {
  if (direct) {
    c->entry = parse_u32(text, What{"", "entry handle", ""});
  } else {
    c->index = parse_u32(text, What{"", "index", ""});
  }
}

void Console::show_resources(const Args &, std::string &out) {
  std::string text = "counters:\n";
  for (size_t i = 0; i < cat_.ncounters; ++i) {
    const CounterDesc &c = cat_.counters[i];
    text += "  " + pad(c.name, 30) + hex08(c.handle) + "  " +
            (c.direct ? "direct, a cell per entry of " + str(c.table) : "indirect, by index") + "\n";
  }
  text += "meters:\n";
  for (size_t i = 0; i < cat_.nmeters; ++i) {
    const MeterDesc &m = cat_.meters[i];
    text += "  " + pad(m.name, 30) + hex08(m.handle) + "  " + m.unit + ", " +
            (m.direct ? "direct, a cell per entry of " + str(m.table) : "indirect, by index (" + str(m.table) + ")") +
            "\n";
  }
  text += "registers (indexed, one value per pipe):\n";
  for (size_t i = 0; i < cat_.nregisters; ++i)
    text += "  " + pad(cat_.registers[i].name, 30) + hex08(cat_.registers[i].handle) + "\n";
  text += "learning digests:\n";
  for (size_t i = 0; i < cat_.ndigests; ++i) {
    const DigestDesc &d = cat_.digests[i];
    std::vector<std::string> fields;
    for (int f = 0; f < d.nfields; ++f) fields.push_back(d.fields[f].name);
    text += "  " + pad(d.name, 30) + hex08(d.handle) + "  " + std::to_string(d.entry_bytes) + " bytes: " +
            join(fields, ", ") + "\n";
  }
  text += "parser value sets:\n";
  for (size_t i = 0; i < cat_.nvalue_sets; ++i)
    text += "  " + pad(cat_.value_sets[i].name, 30) + hex08(cat_.value_sets[i].handle) + "\n";
  text += "dynamic hashes:\n";
  for (size_t i = 0; i < cat_.nhashes; ++i) {
    const HashDesc &h = cat_.hashes[i];
    text += "  " + pad(h.name, 30) + hex08(h.handle) + "  input " + hex08(h.input) + ", algorithm " +
            hex08(h.algorithm) + "\n";
  }
  out += text;
}

// ---- Counters ----

void Console::counter_read(const Args &args, std::string &out) {
  const CounterDesc &d = counter(args[0]);
  Call c = base_call();
  resource_cell(d.direct, args[1], &c);
  p4_pd_counter_value_t v{};
  c.flags = COUNTER_READ_HW_SYNC;  // the hardware's counts, as traffic left them
  c.counter_out = &v;
  p4_pd_status_t st = d.read(c);
  if (st) driver_error("p4_pd_corvin_switch_counter_read_" + str(d.name), st);
  out += str(d.name) + "[" + (d.direct ? "entry " + hex(c.entry) : std::to_string(c.index)) + "]: " + counts(v) +
         "\n";
}

void Console::counter_write(const Args &args, std::string &out) {
  const CounterDesc &d = counter(args[0]);
  Call c = base_call();
  resource_cell(d.direct, args[1], &c);
  c.counter.packets = parse_number(args[2], 64, What{d.name, "", " packets"}).lo;
  c.counter.bytes = parse_number(args[3], 64, What{d.name, "", " bytes"}).lo;
  p4_pd_status_t st = d.write(c);
  if (st) driver_error("p4_pd_corvin_switch_counter_write_" + str(d.name), st);
  out += str(d.name) + "[" + (d.direct ? "entry " + hex(c.entry) : std::to_string(c.index)) + "] = " +
         counts(c.counter) + "\n";
}

// ---- Meters ----

void Console::meter_set_rates(const Args &args, std::string &out) {
  const MeterDesc &d = meter(args[0]);
  Call c = base_call();
  resource_cell(d.direct, args[1], &c);
  p4_pd_meter_spec_t spec{};
  rate_burst(args[2], "committed", &spec.cir, &spec.cburst);
  rate_burst(args[3], "peak", &spec.pir, &spec.pburst);
  spec.meter_type = PD_METER_TYPE_COLOR_UNAWARE;
  if (args.size() > 4) {
    if (args[4] != "color_aware" && args[4] != "color_unaware")
      throw Error("meter type " + quoted(args[4]) + ": color_aware or color_unaware");
    if (args[4] == "color_aware") spec.meter_type = PD_METER_TYPE_COLOR_AWARE;
  }
  c.meter = &spec;
  p4_pd_status_t st = d.set(c);
  if (st) driver_error("p4_pd_corvin_switch_meter_set_" + str(d.name), st);
  out += str(d.name) + "[" + (d.direct ? "entry " + hex(c.entry) : std::to_string(c.index)) + "] has been set\n";
}

void Console::meter_get_rates(const Args &args, std::string &out) {
  const MeterDesc &d = meter(args[0]);
  Call c = base_call();
  resource_cell(d.direct, args[1], &c);
  p4_pd_meter_spec_t spec{};
  c.meter = &spec;
  p4_pd_status_t st = d.read(c);
  if (st) driver_error("p4_pd_corvin_switch_meter_read_" + str(d.name), st);
  out += str(d.name) + "[" + (d.direct ? "entry " + hex(c.entry) : std::to_string(c.index)) +
         "]: committed " + std::to_string(spec.cir) + ":" + std::to_string(spec.cburst) + ", peak " +
         std::to_string(spec.pir) + ":" + std::to_string(spec.pburst) + " (" + d.unit + ", " +
         (spec.meter_type == PD_METER_TYPE_COLOR_AWARE ? "color aware" : "color unaware") + ")\n";
}

// ---- Registers ----

void Console::register_read(const Args &args, std::string &out) {
  const RegisterDesc &d = register_desc(args[0]);
  Call c = base_call();
  c.index = parse_u32(args[1], What{"", "index", ""});
  uint8_t values[kMaxPipes] = {};
  int count = 0;
  c.bytes_out = values;
  c.value_count_out = &count;
  p4_pd_status_t st = d.read(c);
  if (st) driver_error("p4_pd_corvin_switch_register_read_" + str(d.name), st);
  std::string text = str(d.name) + "[" + std::to_string(c.index) + "]:";
  for (int i = 0; i < count && i < int(kMaxPipes); ++i) text += " " + std::to_string(values[i]);
  out += text + (count > 1 ? " (one value per pipe)\n" : "\n");
}

void Console::register_write(const Args &args, std::string &out) {
  const RegisterDesc &d = register_desc(args[0]);
  Call c = base_call();
  c.index = parse_u32(args[1], What{"", "index", ""});
  uint8_t value = uint8_t(parse_number(args[2], 8, What{d.name, "", " value"}).lo);
  c.bytes_in = &value;
  p4_pd_status_t st = d.write(c);
  if (st) driver_error("p4_pd_corvin_switch_register_write_" + str(d.name), st);
  out += str(d.name) + "[" + std::to_string(c.index) + "] = " + std::to_string(value ? 1 : 0) + "\n";
}

void Console::register_reset(const Args &args, std::string &out) {
  const RegisterDesc &d = register_desc(args[0]);
  p4_pd_status_t st = d.reset(base_call());
  if (st) driver_error("p4_pd_corvin_switch_register_reset_all_" + str(d.name), st);
  out += str(d.name) + ": every cell has been reset\n";
}

// ---- Hashes ----

void Console::hash_calc(const Args &args, std::string &out) {
  const HashDesc &d = hash(args[0]);
  std::vector<p4_pd_hash_calc_input_field_attribute_t> attrs;
  std::vector<uint32_t> widths;
  std::deque<std::vector<uint8_t>> streams;  // wider fields' bytes, which the records point at
  for (size_t i = 1; i < args.size(); ++i) {
    std::string_view tok = args[i];
    size_t colon = tok.find(':');
    if (colon == std::string_view::npos)
      throw Error("hash " + str(d.name) + ": field " + std::to_string(i) + " " + quoted(tok) +
                  ": WIDTH:VALUE, as 16:0x800");
    uint32_t width = parse_u32(tok.substr(0, colon), What{"", "field width", ""});
    if (width == 0 || width > 128)
      throw Error("hash " + str(d.name) + ": field " + std::to_string(i) + " width " + std::to_string(width) +
                  ": 1 to 128 bits");
    U128 v = parse_number(tok.substr(colon + 1), width, What{d.name, "", " field " + std::to_string(i)});
    p4_pd_hash_calc_input_field_attribute_t a{};
    a.input_field = uint32_t(i - 1);
    if (width <= 32) {
      a.value.val = uint32_t(v.lo);
    } else {
      uint8_t be[16];
      v.to_be(be);
      size_t n = (width + 7) / 8;
      streams.emplace_back(be + 16 - n, be + 16);
      a.value.stream = streams.back().data();
    }
    attrs.push_back(a);
    widths.push_back(width);
  }
  uint8_t result[kHashBytes] = {};
  Call c = base_call();
  c.attr_count = uint32_t(attrs.size());
  c.attr_list = attrs.data();
  c.attr_sizes = widths.data();
  c.bytes_out = result;
  c.bytes_len = kHashBytes;
  p4_pd_status_t st = d.value(c);
  if (st) driver_error("p4_pd_corvin_switch_hash_calc_" + str(d.name) + "_calculate_hash_value", st);
  out += str(d.name) + " = 0x" + bytes_hex(result, kHashBytes) + "\n";
}

// ---- Parser value sets ----

void Console::pvs_add(const Args &args, std::string &out) {
  const ValueSetDesc &d = value_set(args[0]);
  std::string_view text = args[1];
  size_t at = text.find("&&&");
  Call c = base_call();
  c.pvs_value = uint32_t(parse_number(text.substr(0, at), 32, What{d.name, "", " value"}).lo);
  c.pvs_mask = at == std::string_view::npos ? 0xFFFFFFFFu
                                            : uint32_t(parse_number(text.substr(at + 3), 32, What{d.name, "", " mask"}).lo);
  if (args.size() > 2) {
    if (args[2] != "ingress" && args[2] != "egress") throw Error("gress " + quoted(args[2]) + ": ingress or egress");
    c.gress = args[2] == "egress" ? 1 : 0;
  }
  p4_pd_pvs_hdl_t h = 0;
  c.pvs_out = &h;
  p4_pd_status_t st = d.add(c);
  if (st) driver_error("p4_pd_corvin_switch_pvs_" + str(d.name) + "_entry_add", st);
  out += "Value set entry has been added with handle " + hex(h) + "\n";
}

void Console::pvs_dump(const Args &args, std::string &out) {
  const ValueSetDesc &d = value_set(args[0]);
  std::string text;
  size_t total = 0;
  for (uint32_t gress = 0; gress < 2; ++gress) {
    Call base = base_call();
    base.gress = gress;
    const std::string fn = "p4_pd_corvin_switch_pvs_" + str(d.name);
    std::vector<uint32_t> handles = walk_handles(
        fn + "_entry_get_first_entry_handle", fn + "_entry_get_next_entry_handles",
        [&](uint32_t *h) {
          Call c = base;
          c.pvs_out = h;
          return d.first(c);
        },
        [&](uint32_t from, int n, uint32_t *page) {
          Call c = base;
          c.pvs = from;
          c.n = n;
          c.pvs_list_out = page;
          return d.next(c);
        });
    for (uint32_t e : handles) {
      uint32_t value = 0, mask = 0;
      Call g = base_call();
      g.pvs = e;
      g.pvs_value_out = &value;
      g.pvs_mask_out = &mask;
      p4_pd_status_t st = d.get(g);
      if (st) driver_error("p4_pd_corvin_switch_pvs_" + str(d.name) + "_entry_get", st);
      text += "  " + hex(e) + ": " + hex(value) + "&&&" + hex(mask) + (gress ? " (egress)" : " (ingress)") + "\n";
    }
    total += handles.size();
  }
  out += str(d.name) + ": " + std::to_string(total) + (total == 1 ? " entry\n" : " entries\n") + text;
}

// ---- Learning digests ----

int Console::on_digest(p4_pd_sess_hdl_t sess, p4_pd_digest_msg_t *msg, void *cookie) {
  Console *self = static_cast<Console *>(cookie);
  for (size_t i = 0; i < self->cat_.ndigests; ++i) {
    const DigestDesc &d = self->cat_.digests[i];
    if (d.handle != msg->flow_lrn_fld_lst_hdl) continue;
    for (uint16_t r = 0; r < msg->num_entries; ++r) {
      const uint8_t *p = msg->entries + size_t(r) * msg->entry_size;
      self->delivered_[i].records.emplace_back(p, p + msg->entry_size);
    }
    Call c;
    c.sess = sess;
    c.digest_msg = msg;
    return int(d.ack(c));
  }
  return 0;
}

void Console::digest_show(const Args &args, std::string &out) {
  std::string text;
  for (size_t i = 0; i < cat_.ndigests; ++i) {
    const DigestDesc &d = cat_.digests[i];
    if (!args.empty() && &digest(args[0]) != &d) continue;
    std::vector<std::vector<uint8_t>> &records = delivered_[i].records;
    text += str(d.name) + ": " + std::to_string(records.size()) +
            (records.size() == 1 ? " record delivered\n" : " records delivered\n");
    for (const std::vector<uint8_t> &r : records) {
      std::vector<std::string> parts;
      size_t off = 0;
      for (int f = 0; f < d.nfields; ++f) {
        const DigestFieldDesc &fd = d.fields[f];
        std::string_view name = fd.name;
        // The OUI and station halves of a MAC address go together.
        if (ends_with(name, "Oui") && f + 1 < d.nfields &&
            std::string_view(d.fields[f + 1].name) == str(name.substr(0, name.size() - 3)) + "Station") {
          U128 oui = load(r.data(), uint16_t(off), fd.bytes), station = load(r.data(), uint16_t(off + fd.bytes), 4);
          parts.push_back(str(name.substr(0, name.size() - 3)) + "=" +
                          show_mac(uint32_t(oui.lo) & 0xFFFFFF, uint32_t(station.lo) & 0xFFFFFF));
          off += fd.bytes + d.fields[f + 1].bytes;
          ++f;
          continue;
        }
        U128 v = load(r.data(), uint16_t(off), fd.bytes);
        const char *hint = fd.bytes == 16 ? "v6addr" : ends_with(name, "_sip") ? "v4addr" : "dec";
        parts.push_back(str(name) + "=" + show(v, fd.bytes * 8u, hint));
        off += fd.bytes;
      }
      text += "  " + join(parts, " ") + "\n";
    }
    records.clear();
  }
  out += text;
}

void Console::model_learn(const Args &args, std::string &out) {
  const DigestDesc &d = digest(args[0]);
  std::vector<uint8_t> record(d.entry_bytes, 0);
  std::vector<std::string> names;
  std::vector<size_t> offsets;
  size_t off = 0;
  for (int f = 0; f < d.nfields; ++f) {
    std::string_view name = d.fields[f].name;
    names.push_back(str(name));
    if (ends_with(name, "Oui")) names.push_back(str(name.substr(0, name.size() - 3)));  // a MAC pair's stem
    offsets.push_back(off);
    off += d.fields[f].bytes;
  }
  std::vector<bool> given(d.nfields, false);
  for (size_t i = 1; i < args.size(); ++i) {
    std::string_view name, value;
    if (!named(args[i], &name, &value))
      throw Error("digest " + str(d.name) + ": " + quoted(args[i]) + ": FIELD=VALUE");
    int f = -1, station = -1;
    for (int k = 0; k < d.nfields; ++k) {
      if (name == d.fields[k].name) f = k;
      if (str(name) + "Oui" == d.fields[k].name && k + 1 < d.nfields &&
          str(name) + "Station" == d.fields[k + 1].name)
        f = k, station = k + 1;
    }
    if (f < 0) throw Error(unknown_name("field", name, "digest " + str(d.name), names));
    if (given[size_t(f)]) throw Error("digest " + str(d.name) + ": " + str(name) + " is given twice");
    given[size_t(f)] = true;
    What what{d.name, name, ""};
    if (station >= 0) {
      U128 mac = parse_mac48(value, what);
      store(record.data(), uint16_t(offsets[size_t(f)]), d.fields[f].bytes, mac.shr(24));
      store(record.data(), uint16_t(offsets[size_t(station)]), d.fields[station].bytes, U128{0, mac.lo & 0xFFFFFF});
    } else {
      store(record.data(), uint16_t(offsets[size_t(f)]), d.fields[f].bytes,
            parse_number(value, d.fields[f].bytes * 8u, what));
    }
  }
  size_t before = delivered_[size_t(&d - cat_.digests)].records.size();
  bf_status_t st = drvm_learn(options_.device, 0, d.handle, record.data(), 1);
  if (st) driver_error("drvm_learn", uint32_t(st));
  size_t now = delivered_[size_t(&d - cat_.digests)].records.size();
  uint32_t pending = drvm_learn_pending(options_.device, d.handle);
  out += str(d.name) + ": 1 record learned; " +
         (now > before ? std::to_string(now - before) + " delivered (digest_show)"
                       : std::to_string(pending) + " pending until the learning timeout (model_advance_clock)") +
         "\n";
}

// ---- The model's part of the chip ----

void Console::model_traffic(const Args &args, std::string &out) {
  const TableInfo &t = table(args[0]);
  if (!t.d->counted)
    throw Error("table " + str(t.d->name) + " has no direct counter to count traffic in (show_resources)");
  uint32_t entry = parse_u32(args[1], What{"", "entry handle", ""});
  uint64_t packets = parse_number(args[2], 64, What{"", "packets", ""}).lo;
  uint64_t bytes = parse_number(args[3], 64, What{"", "bytes", ""}).lo;
  bf_status_t st = drvm_stat_direct_count(options_.device, t.d->handle, entry, packets, bytes);
  if (st) throw Error("table " + str(t.d->name) + " has no entry " + hex(entry) + " (" + status_name(uint32_t(st)) + ")");
  out += str(t.d->name) + " entry " + hex(entry) + ": " + std::to_string(packets) + " packets, " +
         std::to_string(bytes) + " bytes counted\n";
}

void Console::model_advance_clock(const Args &args, std::string &out) {
  uint64_t ms = parse_number(args[0], 32, What{"", "milliseconds", ""}).lo;
  drvm_advance_clock(ms * 1000);
  out += "clock: " + std::to_string(drvm_clock_us() / 1000) + " ms\n";
}

// A soft error of the chip: the last bit of an entry's action image flips, without the library.
void Console::model_flip(const Args &args, std::string &out) {
  const TableInfo &t = table(args[0]);
  uint32_t entry = parse_u32(args[1], What{"", "entry handle", ""});
  keep_stale();  // what the console keeps was taken before the fault
  void *list = nullptr;
  bf_status_t st = pipe_mgr_plcmt_mat_data_get(options_.device, &list, t.d->handle);
  if (st) driver_error("pipe_mgr_plcmt_mat_data_get", uint32_t(st));
  bool done = false;
  std::string why = "table " + str(t.d->name) + " has no entry " + hex(entry);
  for (uint32_t i = 0, n = pipe_mgr_plcmt_list_count(list); i < n && !done; ++i) {
    uint32_t h = 0;
    void *datum = pipe_mgr_plcmt_list_datum(list, i, &h);
    if (h != entry) continue;
    pipe_tbl_match_spec_t ms{};
    uint8_t value[64], mask[64], image[256] = {};
    ms.match_value_bytes = value;
    ms.match_mask_bytes = mask;
    pipe_action_spec_t as{};
    as.act_data.action_data_bytes = image;
    uint32_t act = 0;
    st = pipe_mgr_plcmt_mat_data_get_entry(datum, &ms, &as, &act);
    if (st || as.action_data_type != PIPE_ACTION_DATA_TYPE || as.act_data.num_action_data_bytes == 0) {
      why = "table " + str(t.d->name) + ", entry " + hex(entry) + ": its action has no data to flip";
      break;
    }
    image[as.act_data.num_action_data_bytes - 1] ^= 1;
    st = pipe_mgr_mat_ent_set_action(options_.session, options_.device, t.d->handle, entry, act, &as, 0);
    done = st == 0;
    if (st) why = "pipe_mgr_mat_ent_set_action returned " + std::to_string(st) + " (" + status_name(uint32_t(st)) + ")";
  }
  pipe_mgr_plcmt_list_destroy(list);
  if (!done) throw Error(why);
  out += str(t.d->name) + " entry " + hex(entry) + ": the last bit of its action data has flipped in the device\n";
}

// ---- Hardware agreement of the placement data the console keeps ----

void Console::changed(const TableDesc *d) {
  kept_[d].stale = true;
}

void Console::keep(const TableDesc *d, Kept *k) {
  void *list = nullptr;
  Call c = base_call();
  c.plcmt_out = &list;
  p4_pd_status_t st = d->plcmt(c);
  if (st) driver_error(function_name(d, "_get_plcmt_data"), st);
  if (k->list) pipe_mgr_plcmt_list_destroy(k->list);
  k->list = list;
  k->stale = false;
}

void Console::keep_stale() {
  for (auto &kv : kept_)
    if (kv.second.stale || !kv.second.list) keep(kv.first, &kv.second);
}

void Console::check(const Args &args, std::string &out) {
  const TableDesc *only = args.empty() ? nullptr : table(args[0]).d;
  if (only && !kept_.count(only)) kept_[only].stale = true;
  keep_stale();
  std::vector<const TableDesc *> tables;
  for (const auto &kv : kept_)
    if (!only || kv.first == only) tables.push_back(kv.first);
  std::sort(tables.begin(), tables.end(), [](const TableDesc *a, const TableDesc *b) { return a->handle < b->handle; });
  if (tables.empty()) {
    out += "no placement data kept: the console keeps it of the tables it changes\n";
    return;
  }
  std::string text;
  size_t differ = 0, all = 0;
  std::vector<char> buf(kTextRoom);
  for (const TableDesc *d : tables) {
    void *list = kept_[d].list;
    uint32_t n = pipe_mgr_plcmt_list_count(list), bad = 0;
    for (uint32_t i = 0; i < n; ++i) {
      uint32_t h = 0;
      void *datum = pipe_mgr_plcmt_list_datum(list, i, &h);
      buf[0] = '\0';
      int same = p4_pd_corvin_switch_plcmt_data_eq_to_hw(options_.session, uint8_t(options_.device), d->handle, h,
                                                          datum, 0, buf.data());
      if (same) continue;
      ++bad;
      std::string why(buf.data());
      while (!why.empty() && (why.back() == '\n' || why.back() == ' ')) why.pop_back();
      for (char &ch : why)
        if (ch == '\n') ch = ';';
      text += str(d->name) + " " + hex(h) + ": " + why + "\n";
    }
    if (bad == 0) text += str(d->name) + ": " + std::to_string(n) + (n == 1 ? " entry agrees\n" : " entries agree\n");
    differ += bad;
    all += n;
  }
  text += differ == 0 ? "the device agrees with the kept placement data (" + std::to_string(all) +
                            (all == 1 ? " entry)\n" : " entries)\n")
                      : std::to_string(differ) + " of " + std::to_string(all) +
                            " entries differ from the kept placement data\n";
  out += text;
}

Console::~Console() {
  for (auto &kv : kept_)
    if (kv.second.list) pipe_mgr_plcmt_list_destroy(kv.second.list);
  for (size_t i = 0; i < cat_.ndigests; ++i) {
    Call c = base_call();
    cat_.digests[i].deregister_cb(c);
  }
}

}  // namespace cvcli
