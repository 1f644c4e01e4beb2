/* A control plane in C, built against the installed library alone: it starts the library on the
 * driver model, installs a known unicast MAC, reads the entry back as text, checks the device and
 * says what it found. Exit status 0 when all is as programmed. */
#include <stdio.h>
#include <string.h>

#include "corvin_switch/pd.h"
#include "drv/model.h"

int main(void) {
  p4_pd_corvin_switch_l2Lookup_match_spec_t key = {0x00aabb, 0x00ccdd, 0x0123};
  p4_pd_corvin_switch_l2LookupKnownUcast_action_spec_t port = {0x000123};
  p4_pd_dev_target_t tgt = {0, PD_DEV_PIPE_ALL};
  p4_pd_entry_hdl_t hdl = 0;
  void *placed = NULL;
  char text[400], diff[128] = "";
  const char *want = "((( 0x00aabb,0x00ccdd,0x0123,),('l2LookupKnownUcast',(0x000123,)),),(0,True))";
  int agree;

  p4_pd_corvin_switch_init();
  if (p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupKnownUcast(1, tgt, &key, &port, &hdl) != 0) {
    printf("add refused\n");
    return 1;
  }
  p4_pd_corvin_switch_l2Lookup_value(1, 0, hdl, 0, text);
  printf("entry %u: %s\n", hdl, text);
  if (strcmp(text, want) != 0) return 1;

  /* Keep the placement, change the entry behind it, and let the library find the difference. */
  if (p4_pd_corvin_switch_l2Lookup_get_plcmt_data(0, &placed) != 0) return 1;
  port.action_egrL2Aintf = 0x000456;
  p4_pd_corvin_switch_l2Lookup_table_modify_with_l2LookupKnownUcast(1, 0, hdl, &port);
  agree = p4_pd_corvin_switch_l2Lookup_plcmt_data_eq_to_hw(1, 0, 0, hdl, pipe_mgr_plcmt_list_datum(placed, 0, NULL),
                                                            diff);
  printf("placement agrees with the device: %d (%s)\n", agree, diff);
  pipe_mgr_plcmt_list_destroy(placed);
  printf("driver calls recorded: %u\n", (unsigned)drvm_call_count());
  return agree == 0 && strcmp(diff, "aspec action_egrL2Aintf differs 0x123 vs 0x456") == 0 ? 0 : 1;
}
