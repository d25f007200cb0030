#include "Ocpp20/Protocol/CustomException.h"

#include <utility>

CustomException::CustomException(std::string message) : m_message(std::move(message)) {}

const char* CustomException::what() const noexcept { return m_message.c_str(); }
