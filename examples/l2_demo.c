/* A short tour: start the library on the driver model, add a few bridging and routing entries and
 * show what reached the driver. */
#include <stdio.h>

#include "corvin_switch/pd.h"
#include "drv/model.h"

static void show_bytes(const char *label, const uint8_t *p, unsigned n) {
  unsigned i;
  printf("    %-7s", label);
  for (i = 0; i < n; ++i) printf(" %02X", p[i]);
  printf("\n");
}

static void show_last_add(const char *what, p4_pd_status_t status) {
  const drvm_call_t *c = drvm_last_call("pipe_mgr_mat_ent_add");
  unsigned r;
  printf("%s -> status %u\n", what, status);
  if (!c) return;
  printf("  pipe_mgr_mat_ent_add(table 0x%X, action 0x%X, ttl %u) entry handle %u\n", c->tbl_hdl, c->act_fn_hdl,
         c->ttl, c->ent_hdl);
  printf("    key word 0x%X, priority %u, partition %u\n",
         ((unsigned)c->match.num_match_bytes << 16) + c->match.num_valid_match_bits, c->match.priority,
         c->match.partition_index);
  show_bytes("value", c->match.match_value_bytes, c->match.num_match_bytes);
  show_bytes("mask", c->match.match_mask_bytes, c->match.num_match_bytes);
  printf("    action word 0x%X\n",
         ((unsigned)c->action.act_data.num_action_data_bytes << 16) + c->action.act_data.num_valid_action_data_bits);
  show_bytes("image", c->action.act_data.action_data_bytes, c->action.act_data.num_action_data_bytes);
  for (r = 0; r < c->action.resource_count; ++r) {
    const pipe_res_spec_t *res = &c->action.resources[r];
    printf("    resource 0x%X index %u tag %u", res->tbl_hdl, res->tbl_idx, res->tag);
    if (res->data.meter.cir || res->data.meter.pir)
      printf(" meter type %u cir %llu pir %llu", res->data.meter.meter_type, (unsigned long long)res->data.meter.cir,
             (unsigned long long)res->data.meter.pir);
    printf("\n");
  }
}

int main(void) {
  p4_pd_dev_target_t tgt = {0, PD_DEV_PIPE_ALL};
  p4_pd_sess_hdl_t sess = 1;
  p4_pd_entry_hdl_t hdl;
  p4_pd_corvin_switch_l2Lookup_match_spec_t mac = {0x001122, 0x334455, 0x0123};
  p4_pd_corvin_switch_l2LookupKnownUcast_action_spec_t port = {0x112233};
  p4_pd_corvin_switch_l2LookupMiss_match_spec_t miss = {0};
  p4_pd_meter_spec_t storm = {100000, 8192, 200000, 16384, PD_METER_TYPE_COLOR_UNAWARE};
  p4_pd_corvin_switch_ipv4Partition0_match_spec_t route = {0x155, 0x0A010203, 24};
  p4_pd_corvin_switch_setIpv4PrtResultXFirst_action_spec_t result = {0};
  p4_pd_status_t st;

  drvm_reset();
  p4_pd_corvin_switch_init();
  printf("library registered with the driver as client %u\n\n", bf_drv_hdl);

  st = p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupKnownUcast(sess, tgt, &mac, &port, &hdl);
  show_last_add("l2Lookup: 00:11:22:33:44:55 in domain 0x123 -> L2 interface 0x112233", st);
  mac.egrMd_dmacStation = 0x334456;
  st = p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupDrop(sess, tgt, &mac, &hdl);
  show_last_add("l2Lookup: 00:11:22:33:44:56 -> drop", st);
  st = p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupDrop(sess, tgt, &mac, &hdl);
  printf("the same key again -> status %u (the driver refuses a duplicate)\n\n", st);

  miss.ig_intr_md_ingress_port = 0x081;
  miss.ig_intr_md_ingress_port_mask = 0x1FF;
  miss.egrMd_dmacOui = 0x010000;
  miss.egrMd_dmacOui_mask = 0xFF0000;
  miss.egrMd_egrL2Domain = 0x0ABC;
  st = p4_pd_corvin_switch_l2LookupMiss_table_add_with_l2LookupBcastHit(sess, tgt, &miss, 7, &storm, &hdl);
  show_last_add("l2LookupMiss: multicast Oui on port 0x81, priority 7, storm control", st);

  result.action_pri = 3;
  result.action_partIdx = 0x1234;
  st = p4_pd_corvin_switch_ipv4Partition0_table_add_with_setIpv4PrtResultXFirst(sess, tgt, &route, &result, &hdl);
  show_last_add("ipv4Partition0: VRF 0x155, 10.1.2.3/24", st);
  route.ingIpv4_dipAndVrf_prefix_length = 33;
  st = p4_pd_corvin_switch_ipv4Partition0_table_add_with_setIpv4PrtResultXFirst(sess, tgt, &route, &result, &hdl);
  show_last_add("ipv4Partition0: prefix 33, longer than the field: passed on as it stands", st);

  printf("\n%u entries in l2Lookup, %u driver calls recorded\n", (unsigned)drvm_entry_count(0, 0x100002C),
         (unsigned)drvm_call_count());
  return p4_pd_corvin_switch_cleanup() == 0 ? 0 : 1;
}
