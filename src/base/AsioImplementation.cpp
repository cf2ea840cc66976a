// The one place where Asio's function bodies are compiled.

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"
#include <boost/asio/impl/src.hpp>
#include <boost/asio/ssl/impl/src.hpp>
#pragma GCC diagnostic pop
