// Frame accessors of the host: from the opaque run handles to frames and input values.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "scframe.h"

// The input frame of the run (id 0); null when the run has none.
HOST_API std::shared_ptr<CScFrame> ZR_M_Get_Frame_ByID(void* input, int id);
// The output frame of the run.
HOST_API std::shared_ptr<CScFrame> ZR_M_Get_Frame_ByHOutput(void* output);
// Resolves a module input into the frame that carries its value and that value's key.
// Non-zero when found.
HOST_API int ZR_M_Get_By_Map(const void* input, const std::string& name,
                             std::shared_ptr<CScFrame>& frame, std::string& key);
// Values of a module input: 0 on success, with count elements in list.
HOST_API int ZR_M_GetInt_Dynamic(void* input, const std::string& name, int& count, int& value,
                                 std::vector<int>& list);
HOST_API int ZR_M_GetFloat_Dynamic(void* input, const std::string& name, int& count, float& value,
                                   std::vector<float>& list);
HOST_API int ZR_M_GetString_Dynamic(void* input, const std::string& name, int& count,
                                    std::string& value, std::vector<std::string>& list);
