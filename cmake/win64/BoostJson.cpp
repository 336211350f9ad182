// Boost.JSON compiled from its headers: the Windows build has no Boost libraries to link.
#include <boost/json/src.hpp>
