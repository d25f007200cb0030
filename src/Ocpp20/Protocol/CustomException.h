#pragma once
#include <exception>
#include <string>

// Thrown by the message models when a payload does not fit its record
// (wrong JSON type, not an object). The dispatcher answers it with a
// TypeConstraintViolation error; the text only goes to the log.
class CustomException : public std::exception {
public:
    explicit CustomException(std::string message);
    const char* what() const noexcept override;

private:
    std::string m_message;
};
