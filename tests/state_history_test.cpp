// The member-selector state the library keeps beside the driver, after long random histories of
// members, groups, memberships and bound entries over all six action profiles and their tables, on
// two devices: it holds what a reference of the rules says; its device state record restores it
// into a fresh process, and a hitless restore rebuilds it from the driver's replay (also into a
// live state), with every query answered as before. A hostile record is refused without touching
// the state.
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <random>
#include <sstream>

#include <cjson/cJSON.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "profile_ops.h"
#include "test_support.h"

extern "C" {
#include "drv/pd_ms.h"
}

namespace {

using cvtest::kProfileOps;
using cvtest::kProfileOpsCount;
using cvtest::ProfileOps;

// What the rules say one profile's state holds on one device.
struct Reference {
  struct Group {
    uint32_t max = 0;
    std::optional<uint32_t> act;
    std::vector<uint32_t> mbrs;  // in the order they joined
  };
  std::map<uint32_t, uint32_t> mbrs;  // member -> its action
  std::map<uint32_t, Group> grps;

  bool in_any_group(uint32_t m) const {
    return std::any_of(grps.begin(), grps.end(), [&](const auto &g) {
      return std::count(g.second.mbrs.begin(), g.second.mbrs.end(), m) != 0;
    });
  }
};

// What a state answers, read through the layer's own queries.
struct Answers {
  std::map<uint32_t, std::optional<uint32_t>> mbr_act, grp_act;
  std::map<uint32_t, std::vector<uint32_t>> grp_mbrs, mbr_grps;  // in increasing order

  bool operator==(const Answers &) const = default;
};

std::vector<uint32_t> walk(bf_status_t (*fn)(p4_pd_ms_state_t *, bf_dev_id_t, uint32_t, uint32_t, uint32_t *,
                                             uint32_t *),
                           p4_pd_ms_state_t *s, bf_dev_id_t dev, uint32_t hdl) {
  uint32_t count = 0;
  EXPECT_EQ(fn(s, dev, hdl, 0, nullptr, &count), 0);
  std::vector<uint32_t> out(count);
  EXPECT_EQ(fn(s, dev, hdl, count, out.data(), &count), 0);
  return out;
}

Answers ask(p4_pd_ms_state_t *s, bf_dev_id_t dev) {
  Answers a;
  uint32_t n = 0;
  EXPECT_EQ(p4_pd_ms_get_mbrs(s, dev, 0, nullptr, &n), 0);
  std::vector<uint32_t> mbrs(n);
  EXPECT_EQ(p4_pd_ms_get_mbrs(s, dev, n, mbrs.data(), &n), 0);
  EXPECT_EQ(p4_pd_ms_get_grps(s, dev, 0, nullptr, &n), 0);
  std::vector<uint32_t> grps(n);
  EXPECT_EQ(p4_pd_ms_get_grps(s, dev, n, grps.data(), &n), 0);
  for (uint32_t m : mbrs) {
    uint32_t act = 0;
    a.mbr_act[m] = p4_pd_ms_get_mbr_act(s, dev, m, &act) == 0 ? std::optional<uint32_t>(act) : std::nullopt;
    a.mbr_grps[m] = walk(p4_pd_ms_get_mbr_grps, s, dev, m);
  }
  for (uint32_t g : grps) {
    uint32_t act = 0;
    a.grp_act[g] = p4_pd_ms_get_grp_act(s, dev, g, &act) == 0 ? std::optional<uint32_t>(act) : std::nullopt;
    a.grp_mbrs[g] = walk(p4_pd_ms_get_grp_mbrs, s, dev, g);
  }
  return a;
}

// What a reference answers; with `replayed`, a group's action is that of its member replayed last
// (the member that joined last), as a hitless restore rebuilds it.
Answers expected(const Reference &r, bool replayed) {
  Answers a;
  for (const auto &[m, act] : r.mbrs) {
    a.mbr_act[m] = act;
    a.mbr_grps[m];
  }
  for (const auto &[g, grp] : r.grps) {
    a.grp_act[g] = replayed ? (grp.mbrs.empty() ? std::nullopt : std::optional<uint32_t>(r.mbrs.at(grp.mbrs.back())))
                            : grp.act;
    std::vector<uint32_t> sorted = grp.mbrs;
    std::sort(sorted.begin(), sorted.end());
    a.grp_mbrs[g] = sorted;
    for (uint32_t m : grp.mbrs) a.mbr_grps[m].push_back(g);
  }
  for (auto &[m, gs] : a.mbr_grps) std::sort(gs.begin(), gs.end());
  return a;
}

// The library's device state record of a device, whole.
std::string record_text(bf_dev_id_t dev) {
  cJSON *root = cJSON_CreateObject();
  EXPECT_EQ(drvm_fire_dev_log(dev, root), 0);
  char *text = cJSON_PrintUnformatted(root);
  std::string out = text;
  cJSON_free(text);
  cJSON_Delete(root);
  return out;
}

// What the library's state answers for one profile and device: its record of the device, loaded
// into a state object of the test's own.
Answers library_answers(bf_dev_id_t dev, size_t profile) {
  cJSON *root = cJSON_CreateObject();
  EXPECT_EQ(drvm_fire_dev_log(dev, root), 0);
  p4_pd_ms_state_t *s = p4_pd_ms_init_state();
  EXPECT_EQ(p4_pd_ms_restore_state(dev, s, cJSON_GetArrayItem(cJSON_GetObjectItem(root, "act_profs"), int(profile))),
            0);
  Answers a = ask(s, dev);
  p4_pd_ms_free_state(s);
  cJSON_Delete(root);
  return a;
}

constexpr bf_dev_id_t kDev = 0, kOtherDev = 1;
constexpr p4_pd_sess_hdl_t kSess = 7;

// A profile's reference with the entries of its bound table: by handle, the key id and what it is
// bound to.
struct Bound {
  uint32_t id;
  bool group;
  uint32_t target;
};
struct Ref : Reference {
  std::map<uint32_t, Bound> entries;
  std::map<uint32_t, uint32_t> by_id;  // key id -> entry
  std::map<uint32_t, int> mbr_refs, grp_refs;  // entries bound to each
};

// The answers of every state as text, for a comparison across processes.
std::string answers_text(const Answers &a) {
  std::ostringstream o;
  for (const auto &[m, act] : a.mbr_act) o << "m" << m << ":" << (act ? *act : 0) << (act ? "" : "?") << ";";
  for (const auto &[g, act] : a.grp_act) o << "g" << g << ":" << (act ? *act : 0) << (act ? "" : "?") << ";";
  for (const auto &[g, ms] : a.grp_mbrs) {
    o << "G" << g << "[";
    for (uint32_t m : ms) o << m << ",";
    o << "]";
  }
  for (const auto &[m, gs] : a.mbr_grps) {
    o << "M" << m << "[";
    for (uint32_t g : gs) o << g << ",";
    o << "]";
  }
  return o.str();
}

std::string all_answers(bf_dev_id_t dev) {
  std::string s;
  for (size_t p = 0; p < kProfileOpsCount; ++p) s += std::string(kProfileOps[p].name) + "{" +
                                                     answers_text(library_answers(dev, p)) + "}\n";
  return s;
}

class StateHistory : public cvtest::LibraryTest {
 protected:
  void step(std::mt19937 &rng, size_t p, bf_dev_id_t dev) {
    const ProfileOps &op = kProfileOps[p];
    Ref &r = ref_[{p, dev}];
    p4_pd_dev_target_t tgt = {dev, 0xFFFF};
    auto pick = [&](const auto &m) {
      auto it = m.begin();
      std::advance(it, std::uniform_int_distribution<size_t>(0, m.size() - 1)(rng));
      return it->first;
    };
    ++ops_;
    switch (std::uniform_int_distribution<int>(0, 13)(rng)) {
      case 0:
      case 1: {  // a member of a random action
        int a = std::uniform_int_distribution<int>(0, op.nactions - 1)(rng);
        uint32_t m = 0;
        ASSERT_EQ(op.add_member(a, rng(), kSess, tgt, &m), 0u);
        r.mbrs[m] = op.actions[a];
        break;
      }
      case 2: {  // delete a member: refused while a group holds it or an entry is bound to it
        if (r.mbrs.empty()) return;
        uint32_t m = pick(r.mbrs);
        uint32_t st = op.del_member(kSess, dev, m);
        if (r.in_any_group(m) || r.mbr_refs[m] > 0) {
          ASSERT_EQ(st, uint32_t(BF_IN_USE));
        } else {
          ASSERT_EQ(st, 0u);
          r.mbrs.erase(m);
        }
        break;
      }
      case 3: {
        uint32_t g = 0, max = std::uniform_int_distribution<uint32_t>(1, 6)(rng);
        ASSERT_EQ(op.create_group(kSess, tgt, max, &g), 0u);
        r.grps[g].max = max;
        break;
      }
      case 4: {  // delete a group, members and all; refused while an entry is bound to it
        if (r.grps.empty() || rng() % 2) return;
        uint32_t g = pick(r.grps);
        uint32_t st = op.del_group(kSess, dev, g);
        if (r.grp_refs[g] > 0) {
          ASSERT_EQ(st, uint32_t(BF_IN_USE));
        } else {
          ASSERT_EQ(st, 0u);
          r.grps.erase(g);
        }
        break;
      }
      case 5:
      case 6:
      case 7: {  // a member joins a group: refused when it is there already or the group is full
        if (r.mbrs.empty() || r.grps.empty()) return;
        uint32_t m = pick(r.mbrs), g = pick(r.grps);
        Reference::Group &grp = r.grps[g];
        uint32_t st = op.add_to_group(kSess, dev, g, m);
        bool there = std::count(grp.mbrs.begin(), grp.mbrs.end(), m) != 0;
        if (there || grp.mbrs.size() == grp.max) {
          ASSERT_NE(st, 0u);
        } else {
          ASSERT_EQ(st, 0u);
          grp.mbrs.push_back(m);
          grp.act = r.mbrs[m];
        }
        break;
      }
      case 8: {  // a member leaves; the group keeps its action
        if (r.grps.empty()) return;
        uint32_t g = pick(r.grps);
        Reference::Group &grp = r.grps[g];
        if (grp.mbrs.empty()) return;
        uint32_t m = grp.mbrs[rng() % grp.mbrs.size()];
        ASSERT_EQ(op.del_from_group(kSess, dev, g, m), 0u);
        grp.mbrs.erase(std::find(grp.mbrs.begin(), grp.mbrs.end(), m));
        break;
      }
      case 9:
      case 10: {  // an entry bound to a member or a group: refused for a key in use, or a group
                  // without an action
        uint32_t id = uint32_t(rng() % std::min<uint32_t>(op.key_ids, 256));
        bool group = rng() % 2 && !r.grps.empty();
        if (!group && r.mbrs.empty()) return;
        uint32_t target = group ? pick(r.grps) : pick(r.mbrs);
        uint32_t h = 0;
        uint32_t st = group ? op.add_group_entry(kSess, tgt, id, target, &h) : op.add_entry(kSess, tgt, id, target, &h);
        bool taken = r.by_id.count(id) != 0;
        bool no_action = group && !r.grps[target].act;
        if (taken || no_action) {
          ASSERT_NE(st, 0u) << (taken ? "a key in use" : "a group without an action");
          return;
        }
        ASSERT_EQ(st, 0u);
        r.entries[h] = {id, group, target};
        r.by_id[id] = h;
        ++(group ? r.grp_refs : r.mbr_refs)[target];
        break;
      }
      case 11: {  // an entry moves to another member or group
        if (r.entries.empty()) return;
        uint32_t h = pick(r.entries);
        Bound &b = r.entries[h];
        bool group = rng() % 2 && !r.grps.empty();
        if (!group && r.mbrs.empty()) return;
        uint32_t target = group ? pick(r.grps) : pick(r.mbrs);
        uint32_t st = group ? op.modify_group_entry(kSess, dev, h, target) : op.modify_entry(kSess, dev, h, target);
        if (group && !r.grps[target].act) {
          ASSERT_NE(st, 0u);
          return;
        }
        ASSERT_EQ(st, 0u);
        --(b.group ? r.grp_refs : r.mbr_refs)[b.target];
        b.group = group;
        b.target = target;
        ++(group ? r.grp_refs : r.mbr_refs)[target];
        break;
      }
      case 12:
      case 13: {  // an entry goes
        if (r.entries.empty() || rng() % 2) return;
        uint32_t h = pick(r.entries);
        ASSERT_EQ(op.del_entry(kSess, dev, h), 0u);
        const Bound b = r.entries[h];
        --(b.group ? r.grp_refs : r.mbr_refs)[b.target];
        r.by_id.erase(b.id);
        r.entries.erase(h);
        break;
      }
    }
  }

  void history(size_t steps, uint32_t seed) {
    std::mt19937 rng(seed);
    for (size_t i = 0; i < steps && !HasFatalFailure(); ++i) {
      size_t p = rng() % kProfileOpsCount;
      step(rng, p, rng() % 4 == 0 ? kOtherDev : kDev);
    }
  }

  // Every profile's state answers as the reference says, on both devices; every entry reads back
  // bound as the reference says.
  void expect_answers(bool replayed) {
    for (const auto &[key, r] : ref_) {
      SCOPED_TRACE(std::string(kProfileOps[key.first].name) + " device " + std::to_string(key.second));
      EXPECT_TRUE(library_answers(key.second, key.first) == expected(r, replayed));
    }
  }

  void expect_entries() {
    for (const auto &[key, r] : ref_) {
      const ProfileOps &op = kProfileOps[key.first];
      size_t seen = 0;
      for (const auto &[h, b] : r.entries) {
        char text[512];
        int n = p4_pd_corvin_switch_entry_value(kSess, uint8_t(key.second), op.table_handle, h, 0, text);
        ASSERT_GT(n, 0) << op.table << " entry " << h;
        char want[64];
        std::snprintf(want, sizeof want, "('%s',(0x%x,))", b.group ? "setGrpHdl" : "setMbrHdl", b.target);
        EXPECT_NE(std::string(text).find(want), std::string::npos) << text << " wants " << want;
        ++seen;
      }
      ASSERT_EQ(drvm_entry_count(key.second, op.table_handle), r.entries.size()) << op.table;
      EXPECT_EQ(seen, r.entries.size());
    }
  }

  std::map<std::pair<size_t, bf_dev_id_t>, Ref> ref_;
  size_t ops_ = 0;
};

TEST_F(StateHistory, AHundredThousandOperationsSurviveTheRecordAFreshProcessAndAHitlessRestore) {
  auto start = std::chrono::steady_clock::now();
  history(100000, 11);
  ASSERT_FALSE(HasFatalFailure());
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("%zu operations in %.2f s (%.0f per second)\n", ops_, seconds, double(ops_) / seconds);
  size_t members = 0, groups = 0, links = 0, entries = 0;
  for (const auto &[key, r] : ref_) {
    members += r.mbrs.size();
    groups += r.grps.size();
    entries += r.entries.size();
    for (const auto &[g, grp] : r.grps) links += grp.mbrs.size();
  }
  std::printf("kept: %zu members, %zu groups, %zu memberships, %zu bound entries\n", members, groups, links, entries);
  EXPECT_GE(ops_, 100000u);
  EXPECT_EQ(ref_.size(), 2 * kProfileOpsCount) << "every profile on both devices";
  EXPECT_GT(members, 1000u);
  EXPECT_GT(links, 300u);
  EXPECT_GT(entries, 300u);
  expect_answers(false);
  expect_entries();

  // The device state record, into a fresh process: a new driver model and library, the record
  // restored, every query answered as here.
  cJSON *saved = cJSON_CreateObject();
  ASSERT_EQ(drvm_fire_dev_log(kDev, saved), 0);
  char *record = cJSON_PrintUnformatted(saved);
  cJSON_Delete(saved);
  const std::string logged = record_text(kDev), answers = all_answers(kDev);
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    close(fds[0]);
    drvm_reset();
    p4_pd_corvin_switch_init();
    cJSON *in = cJSON_Parse(record);
    std::string reply = in && drvm_fire_dev_restore(kDev, in) == 0 ? record_text(kDev) + "\n" + all_answers(kDev)
                                                                     : std::string("restore failed");
    cJSON_Delete(in);
    size_t done = 0;
    while (done < reply.size()) {
      ssize_t n = write(fds[1], reply.data() + done, reply.size() - done);
      if (n <= 0) break;
      done += size_t(n);
    }
    _exit(done == reply.size() ? 0 : 1);
  }
  close(fds[1]);
  std::string reply;
  char buf[65536];
  for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;) reply.append(buf, size_t(n));
  close(fds[0]);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(reply, logged + "\n" + answers) << "the fresh process answers otherwise";
  cJSON_free(record);

  // A hitless restore: the state of the device goes with the device, and the driver's replay
  // brings it back; a group's action is then that of its member replayed last.
  const std::string other = record_text(kOtherDev);
  ASSERT_EQ(drvm_fire_dev_remove(kDev), 0);
  ASSERT_EQ(p4_pd_corvin_switch_restore_virtual_dev_state(kSess, kDev, 0xFFFF, 0, 0), 0u);
  EXPECT_EQ(record_text(kOtherDev), other) << "another device is untouched";
  for (const auto &[key, r] : ref_) {
    SCOPED_TRACE(std::string(kProfileOps[key.first].name) + " device " + std::to_string(key.second));
    EXPECT_TRUE(library_answers(key.second, key.first) == expected(r, key.second == kDev));
  }
  expect_entries();
}

// A hitless restore into a live state keeps what it has: every replayed member and group is known
// already, and memberships set the groups' actions again, to that of the member replayed last.
TEST_F(StateHistory, ARestoreIntoALiveStateKeepsWhatItHasAndTheReplayAddsNothingNew) {
  history(3000, 4);
  ASSERT_FALSE(HasFatalFailure());
  ASSERT_EQ(p4_pd_corvin_switch_restore_virtual_dev_state(kSess, kDev, 0xFFFF, 0, 0), 0u);
  for (const auto &[key, r] : ref_) {
    SCOPED_TRACE(std::string(kProfileOps[key.first].name) + " device " + std::to_string(key.second));
    Answers got = library_answers(key.second, key.first), want = expected(r, false);
    EXPECT_EQ(got.mbr_act, want.mbr_act);
    EXPECT_EQ(got.grp_mbrs, want.grp_mbrs);
    EXPECT_EQ(got.mbr_grps, want.mbr_grps);
    const Answers replayed = expected(r, key.second == kDev);
    for (const auto &[g, grp] : r.grps)
      EXPECT_EQ(got.grp_act.at(g), grp.mbrs.empty() ? want.grp_act.at(g) : replayed.grp_act.at(g)) << g;
  }
  expect_entries();
}

// A hostile device state record: the layer refuses the profile it is wrong in (the library restores
// every profile it names and reports nothing), and the state answers as before.
TEST_F(StateHistory, AHostileRecordIsRefusedAndTheStateStays) {
  history(3000, 12);
  ASSERT_FALSE(HasFatalFailure());
  const std::string logged = record_text(kDev);
  cJSON *saved = cJSON_CreateObject();
  ASSERT_EQ(drvm_fire_dev_log(kDev, saved), 0);
  char *good = cJSON_PrintUnformatted(saved);
  cJSON_Delete(saved);
  // Nested as deep as the parser takes.
  std::string deep = std::string("{\"act_profs\":[{\"name\":\"") + kProfileOps[3].name + "\",\"members\":";
  for (int i = 0; i < 900; ++i) deep += "[";
  for (int i = 0; i < 900; ++i) deep += "]";
  deep += ",\"groups\":[]}]}";
  std::string text = good;
  auto replaced = [&](const std::string &from, const std::string &to) {
    std::string t = text;
    size_t at = t.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    if (at != std::string::npos) t.replace(at, from.size(), to);
    return t;
  };
  // The record of the first profile cut before its groups.
  auto cut_short = [](const char *record) {
    cJSON *r = cJSON_Parse(record);
    cJSON_DeleteItemFromObject(cJSON_GetArrayItem(cJSON_GetObjectItem(r, "act_profs"), 0), "groups");
    char *t = cJSON_PrintUnformatted(r);
    std::string out = t;
    cJSON_free(t);
    cJSON_Delete(r);
    return out;
  };
  const std::vector<std::string> hostile = {
      replaced(kProfileOps[0].name, "noSuchActionProfile"),      // an unknown profile
      replaced("\"mbr_hdl\":", "\"mbr_hdl\":\"1\",\"x\":"),       // a wrong type
      replaced("\"mbr_hdl\":", "\"mbr_hdl\":1e300,\"y\":"),       // a huge number
      replaced("\"mbr_hdl\":", "\"mbr_hdl\":-1,\"z\":"),          // a negative one
      cut_short(good),                                            // a profile without its groups
      deep,                                                       // deep nesting
  };
  size_t refused = 0;
  for (const std::string &h : hostile) {
    SCOPED_TRACE(h.substr(0, 120));
    cJSON *obj = cJSON_Parse(h.c_str());
    ASSERT_NE(obj, nullptr) << "the test's record is not JSON";
    // The layer's word on each element of a profile's name.
    for (cJSON *el = cJSON_GetObjectItem(obj, "act_profs")->child; el; el = el->next) {
      const cJSON *name = cJSON_GetObjectItem(el, "name");
      for (size_t p = 0; p < kProfileOpsCount; ++p) {
        if (!cJSON_IsString(name) || std::string(name->valuestring) != kProfileOps[p].name) continue;
        p4_pd_ms_state_t *scratch = p4_pd_ms_init_state();
        bf_status_t st = p4_pd_ms_restore_state(kDev, scratch, el);
        p4_pd_ms_free_state(scratch);
        cJSON *copy = cJSON_Parse(good);
        const cJSON *same = cJSON_GetArrayItem(cJSON_GetObjectItem(copy, "act_profs"), int(p));
        const bool untouched = cJSON_Compare(el, same, 1);
        cJSON_Delete(copy);
        if (untouched) {
          EXPECT_EQ(st, BF_SUCCESS);
        } else {
          EXPECT_EQ(st, BF_INVALID_ARG);
          ++refused;
        }
      }
    }
    EXPECT_EQ(drvm_fire_dev_restore(kDev, obj), 0);
    cJSON_Delete(obj);
    EXPECT_EQ(record_text(kDev), logged);
  }
  EXPECT_EQ(refused, hostile.size() - 1) << "each record but the unknown name is refused in one profile";
  cJSON_free(good);
  expect_answers(false);
}

}  // namespace
