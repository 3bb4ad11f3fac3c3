#include "config/item_model.h"

std::string GetVariateTypeStr(FORMAT_V2_VARIATE_TYPE type) {
    switch (type) {
        case FORMAT_V2_VARIATE_INT:
            return "int";
        case FORMAT_V2_VARIATE_FLOAT:
            return "float";
        case FORMAT_V2_VARIATE_STRING:
            return "string";
    }
    return "unknown";
}
