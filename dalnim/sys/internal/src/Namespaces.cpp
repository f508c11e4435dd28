#include <dalnim/dalbase.hpp>

#include <dalnim/io/nsdefs.hpp>
#include <dalnim/log/nsdefs.hpp>
#include <dalnim/mem/nsdefs.hpp>
#include <dalnim/mt/nsdefs.hpp>
#include <dalnim/nsdefs.hpp>
#include <dalnim/sys/internal/nsdefs.hpp>
#include <dalnim/sys/nsdefs.hpp>
#include <dalnim/type/nsdefs.hpp>
#include <dalnim/xml/nsdefs.hpp>

namespace com::kor::dal::nim {

const char NAMESPACE_NAME[] = "com.kor.dal.nim";

namespace io {
const char NAMESPACE_NAME[] = "com.kor.dal.nim.io";
}
namespace log {
const char NAMESPACE_NAME[] = "com.kor.dal.nim.log";
}
namespace mem {
const char NAMESPACE_NAME[] = "com.kor.dal.nim.mem";
}
namespace mt {
const char NAMESPACE_NAME[] = "com.kor.dal.nim.mt";
}
namespace sys {
const char NAMESPACE_NAME[] = "com.kor.dal.nim.sys";
}
namespace sys::internal {
const char NAMESPACE_NAME[] = "com.kor.dal.nim.sys.internal";
}
namespace type {
const char NAMESPACE_NAME[] = "com.kor.dal.nim.type";
}
namespace xml {
const char NAMESPACE_NAME[] = "com.kor.dal.nim.xml";
}

}
