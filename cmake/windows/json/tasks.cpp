#include "stdafx.h"

// The JSON library's headers name the threads of its tasks. No task is ever made here.
namespace pplx {

std::shared_ptr<scheduler_interface> _pplx_cdecl get_ambient_scheduler() {
    std::abort();
}

}  // namespace pplx
