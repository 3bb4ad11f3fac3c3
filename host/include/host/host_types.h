// Records and enumerations exchanged between the host framework and its modules.
// Sizes and offsets are fixed in bytes: the host copies these records whole, so they must
// come out the same on x86-64 and on 32-bit ARM.
#pragma once

#include <cstddef>
#include <cstdint>

#define HOST_API __attribute__((visibility("default")))

struct cJSON;

// One end of a dynamic subscription: the publisher, or this module as subscriber (260 bytes).
struct DYNAMIC_SUBSCRIBE_NODE {
    char algo_name[64];
    int32_t algo_id;
    char param_name[64];
    char reserved[128];
};

struct DYNAMIC_SUBSCRIBE_PARAM {
    DYNAMIC_SUBSCRIBE_NODE pub;
    DYNAMIC_SUBSCRIBE_NODE sub;
};

struct DYNAMIC_PUBLISH_PARAM {
    char param_name[64];
    char type[64];
    int32_t valid;
    int32_t enable;
    int32_t flags;
    char reserved[68];
};

constexpr int kDynamicParamMax = 128;

struct DYNAMIC_PUBLISH_PARAM_LIST {
    int32_t nNum;
    DYNAMIC_PUBLISH_PARAM params[kDynamicParamMax];
};

static_assert(sizeof(DYNAMIC_SUBSCRIBE_NODE) == 260, "subscribe half is 260 bytes");
static_assert(offsetof(DYNAMIC_SUBSCRIBE_NODE, algo_id) == 64, "");
static_assert(offsetof(DYNAMIC_SUBSCRIBE_NODE, param_name) == 68, "");
static_assert(sizeof(DYNAMIC_SUBSCRIBE_PARAM) == 520, "subscribe record is 520 bytes");
static_assert(offsetof(DYNAMIC_SUBSCRIBE_PARAM, sub) == 260, "");
static_assert(offsetof(DYNAMIC_SUBSCRIBE_PARAM, sub) + offsetof(DYNAMIC_SUBSCRIBE_NODE, algo_id) ==
                  324,
              "");
static_assert(offsetof(DYNAMIC_SUBSCRIBE_PARAM, sub) +
                      offsetof(DYNAMIC_SUBSCRIBE_NODE, param_name) ==
                  328,
              "");
static_assert(sizeof(DYNAMIC_PUBLISH_PARAM) == 208, "publish record is 208 bytes");
static_assert(offsetof(DYNAMIC_PUBLISH_PARAM, type) == 64, "");
static_assert(offsetof(DYNAMIC_PUBLISH_PARAM, valid) == 128, "");
static_assert(offsetof(DYNAMIC_PUBLISH_PARAM, enable) == 132, "");
static_assert(offsetof(DYNAMIC_PUBLISH_PARAM, flags) == 136, "");
static_assert(sizeof(DYNAMIC_PUBLISH_PARAM_LIST) == 26628, "publish list is 26628 bytes");

// Records that appear only in signatures of host operations the module never overrides.
// The module passes them through untouched; the stand-in keeps them minimal.
struct PARAM_VALUE_INFO {
    char name[64];
    char value[256];
};
struct PARAM_VALUE_INFO_LIST {
    int32_t nNum;
    PARAM_VALUE_INFO params[kDynamicParamMax];
};
struct PARAM_2DIM_VALUE_INFO_LIST {
    int32_t nNum;
};
struct SUB_VALUE_INFO {
    char name[64];
};
struct SUB_VALUE_INFO_LIST {
    int32_t nNum;
};
struct SUB_HEAD_INFO_LIST {
    int32_t nNum;
};
struct PUB_VALUE_INFO {
    char name[64];
};
struct PUB_VALUE_INFO_LIST {
    int32_t nNum;
};
struct PUB_HEAD_INFO_LIST {
    int32_t nNum;
};
struct HEAD_INFO {
    char name[64];
};
struct MODULE_DEBUG_INFO {
    char text[256];
};
struct MODULE_RUNNING_INFO {
    int32_t state;
};

enum eLOG_LEVEL { LOG_LEVEL_DEBUG = 0, LOG_LEVEL_INFO = 4, LOG_LEVEL_WARN = 5, LOG_LEVEL_ERR = 6 };
enum eLOG_CHANNEL { LOG_CHANNEL_STDOUT = 0 };
enum eALGO_PLAYCTRL { ALGO_PLAYCTRL_STOP = 0, ALGO_PLAYCTRL_PLAY = 1 };

namespace algo {
enum ModuleType { MODULE_TYPE_NONE = 0, MODULE_TYPE_OUTPUT = 1 };
}
