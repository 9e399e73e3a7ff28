// attempt_note.cpp - why an attempt failed, told by whoever knows it first

#include "support/attempt_note.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "support/utf8.h"

namespace zelieml
{

namespace
{

// A plain pointer: an object with a destructor would keep a host from unloading the library.
thread_local attempt_note* current = nullptr;

// Makes text what can be shown in a line.
void make_printable(char* text)
{
    while (*text != '\0') {
        std::size_t const size = printable_size(text);
        if (size == 0) {
            *text = '?';
        }
        text += size > 0 ? size : 1;
    }
}

// Ends a text that was cut off with "...", and not in the middle of a character.
void mark_as_cut(char (&text)[reason_capacity])
{
    constexpr char mark[] = "...";
    char*          end    = text + reason_capacity - sizeof mark;
    while (end > text && (static_cast<unsigned char>(*end) & 0xC0) == 0x80) {
        --end;
    }
    std::memcpy(end, mark, sizeof mark);
}

}  // namespace

void attempt_note::forget()
{
    cause     = eml_cause_none;
    step      = "";
    reason[0] = '\0';
    result    = 0;
}

double attempt_note::seconds() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

noting_attempt::noting_attempt(int number, char const* file) : outer_(current)
{
    note_.forget();
    note_.number = number;
    note_.file   = file;
    note_.begin  = std::chrono::steady_clock::now();
    current      = &note_;
}

noting_attempt::~noting_attempt()
{
    current = outer_;
}

void noting_attempt::pass_on() const
{
    if (outer_ == nullptr) {
        return;
    }
    if (outer_->cause == eml_cause_none) {
        outer_->cause = note_.cause;
        outer_->step  = note_.step;
        std::memcpy(outer_->reason, note_.reason, reason_capacity);
    }
    if (outer_->result == 0) {
        outer_->result = note_.result;
    }
}

attempt_note* current_note()
{
    return current;
}

void note_failure(eml_cause cause, char const* step, char const* format, ...)
{
    attempt_note* const note = current;
    if (note == nullptr || note->cause != eml_cause_none) {
        return;
    }
    note->cause = cause;
    note->step  = step;
    std::va_list args;
    va_start(args, format);
    int const length = std::vsnprintf(note->reason, reason_capacity, format, args);
    va_end(args);
    if (length < 0) {
        note->reason[0] = '\0';
        return;
    }
    if (static_cast<std::size_t>(length) >= reason_capacity) {
        mark_as_cut(note->reason);
    }
    make_printable(note->reason);
}

void note_no_memory(char const* step)
{
    note_failure(eml_cause_memory, step, "there is not enough memory");
}

void note_result(int result)
{
    if (current != nullptr && current->result == 0) {
        current->result = result;
    }
}

}  // namespace zelieml
