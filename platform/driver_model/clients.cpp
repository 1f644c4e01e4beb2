// Driver clients: registration, callback tables and the device hooks.
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "model_internal.h"

namespace drvm {
namespace {

struct Client {
  bf_drv_client_handle_t hdl;
  std::string name;
  bool has_callbacks;
  int prio;
  bf_drv_client_callbacks_t callbacks;
};

std::vector<Client> g_clients;  // in registration order
bf_drv_client_handle_t g_next_client_hdl = 1;

Client *find_client(bf_drv_client_handle_t hdl) {
  for (Client &c : g_clients)
    if (c.hdl == hdl) return &c;
  return nullptr;
}

// The hooks in one slot of all clients, taken under the lock before any runs, so that a hook may
// (de)register.
std::vector<bf_drv_generic_cb_t> hooks_in_slot(unsigned slot) {
  const ModelLock lock;
  std::vector<bf_drv_generic_cb_t> hooks;
  for (const Client &c : g_clients)
    if (c.has_callbacks && c.callbacks.slot[slot] != nullptr) hooks.push_back(c.callbacks.slot[slot]);
  return hooks;
}

// Calls the hook of one slot of every client, as the driver does, without the lock; the first
// non-zero status wins.
template <class Hook, class... Args>
bf_status_t fire(unsigned slot, Args... args) {
  bf_status_t first = BF_SUCCESS;
  for (bf_drv_generic_cb_t hook : hooks_in_slot(slot)) {
    bf_status_t st = reinterpret_cast<Hook>(hook)(args...);
    if (first == BF_SUCCESS) first = st;
  }
  return first;
}

}  // namespace

void reset_clients() {
  g_clients.clear();
  g_next_client_hdl = 1;
}

}  // namespace drvm

using namespace drvm;

extern "C" {

bf_status_t bf_drv_register(const char *client_name, bf_drv_client_handle_t *client_hdl) {
  return DRIVER_CALL(
      "bf_drv_register", PassThrough::none(),
      [&](RecordedCall &r) {
        r.set_text(client_name);
        r.call.ptr_arg = client_hdl;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (client_name == nullptr || client_hdl == nullptr) return BF_INVALID_ARG;
        for (const Client &c : g_clients)
          if (c.name == client_name) return BF_ALREADY_EXISTS;
        Client c{};
        c.hdl = g_next_client_hdl;
        c.name = client_name;
        c.prio = -1;
        g_clients.push_back(std::move(c));
        ++g_next_client_hdl;
        *client_hdl = g_clients.back().hdl;
        if (rec) rec->call.arg_u32[0] = g_clients.back().hdl;
        return BF_SUCCESS;
      });
}

bf_status_t bf_drv_deregister(bf_drv_client_handle_t client_hdl) {
  return DRIVER_CALL(
      "bf_drv_deregister", PassThrough::none(), [&](RecordedCall &r) { r.call.arg_u32[0] = client_hdl; },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        for (auto it = g_clients.begin(); it != g_clients.end(); ++it) {
          if (it->hdl == client_hdl) {
            g_clients.erase(it);
            return BF_SUCCESS;
          }
        }
        return BF_OBJECT_NOT_FOUND;
      });
}

bf_status_t bf_drv_client_register_callbacks(bf_drv_client_handle_t client_hdl,
                                             bf_drv_client_callbacks_t *callbacks,
                                             bf_drv_client_prio_t prio) {
  return DRIVER_CALL(
      "bf_drv_client_register_callbacks", PassThrough::none(),
      [&](RecordedCall &r) {
        r.call.arg_u32[0] = client_hdl;
        r.call.arg_u32[1] = static_cast<uint32_t>(prio);
        r.call.ptr_arg = callbacks;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (callbacks == nullptr) return BF_INVALID_ARG;
        Client *c = find_client(client_hdl);
        if (c == nullptr) return BF_OBJECT_NOT_FOUND;
        c->callbacks = *callbacks;
        c->prio = prio;
        c->has_callbacks = true;
        return BF_SUCCESS;
      });
}

bf_drv_client_handle_t drvm_client_handle(const char *client_name) {
  if (client_name == nullptr) return 0;
  const ModelLock lock;
  for (const Client &c : g_clients)
    if (c.name == client_name) return c.hdl;
  return 0;
}

int drvm_client_callback_prio(bf_drv_client_handle_t client) {
  const ModelLock lock;
  const Client *c = find_client(client);
  return c != nullptr && c->has_callbacks ? c->prio : -1;
}

bf_drv_generic_cb_t drvm_client_callback(bf_drv_client_handle_t client, unsigned slot) {
  const ModelLock lock;
  const Client *c = find_client(client);
  if (c == nullptr || !c->has_callbacks || slot >= BF_DRV_CLIENT_CB_SLOTS) return nullptr;
  return c->callbacks.slot[slot];
}

bf_status_t drvm_fire_dev_remove(bf_dev_id_t dev) {
  return fire<bf_drv_device_remove_cb_t>(BF_DRV_CB_DEVICE_REMOVE, dev);
}

bf_status_t drvm_fire_dev_log(bf_dev_id_t dev, struct cJSON *state) {
  return fire<bf_drv_device_log_cb_t>(BF_DRV_CB_DEVICE_LOG, dev, state);
}

bf_status_t drvm_fire_dev_restore(bf_dev_id_t dev, struct cJSON *state) {
  return fire<bf_drv_device_restore_cb_t>(BF_DRV_CB_DEVICE_RESTORE, dev, state);
}

}  // extern "C"
