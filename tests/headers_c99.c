/* The public headers compile as C99 and can be used from C: a control plane written in C adds an
 * entry through them. */
#include <stdio.h>

#include "corvin_switch/pd.h"
#include "drv/model.h"

int main(void) {
  p4_pd_corvin_switch_l2Lookup_match_spec_t key = {0x001122, 0x334455, 0x0123};
  p4_pd_corvin_switch_l2LookupKnownUcast_action_spec_t act = {0x112233};
  p4_pd_dev_target_t tgt = {0, PD_DEV_PIPE_ALL};
  p4_pd_entry_hdl_t hdl = 0;
  p4_pd_status_t st;
  drvm_reset();
  p4_pd_corvin_switch_init();
  st = p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupKnownUcast(1, tgt, &key, &act, &hdl);
  if (st != 0 || drvm_entry_count(0, 0x100002C) != 1) {
    printf("0 passed, 1 failed\n");
    return 1;
  }
  printf("1 passed, 0 failed\n");
  return 0;
}
