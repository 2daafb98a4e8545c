// Uses something of each library through its public header.
#include "hostlib/config/config.h"
#include "hostlib/utils/proc.h"
#include "hostlib/utils/utils.h"
#include "hostlib/vm/addons.h"
#include "hostlib/vm/img.h"
#include "hostlib/vm/vm.h"
#include "hostlib/vm/vmlib.h"
#include "hostlib/vms/vms.h"
#include "policy/json.h"
#include "policy/kv.h"
#include "tarvhv/cli2.h"
#include "vdsk/vdsk.h"

int main()
{
    kv *tree = kv_new_type(KV_MAP);
    json *object = json_mkobject();
    json_append_int64(object, "cpu", 2);
    kv_set_json(tree, object);
    const bool whole =
        kv_get_int(tree, "cpu", 0) == 2 && vercmp("10.15", "10.15.0") == 0 &&
        proc_exec("/bin/true", nullptr, nullptr, 0) == 0 && vdsk_open("/nonexistent") == nullptr &&
        vmlib_open("/nonexistent") != nullptr && cli2_connect("/nonexistent", nullptr) == -1;
    json_delete(object);
    kv_free(tree);
    return whole ? 0 : 1;
}
