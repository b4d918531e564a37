#include "common/log/fixed_size_streambuffer.hpp"

namespace kov::common::log {

FixedSizeStreambuffer::FixedSizeStreambuffer() { setp(buffer, buffer + CAPACITY); }

FixedSizeStreambuffer::~FixedSizeStreambuffer() = default;

}  // namespace kov::common::log
