// mail_store.h - the one mailbox that SMTP fills and POP3 empties
//
// Methods may be called on any thread. Each mail is kept byte for byte as it was received.

#ifndef ZELIEML_TOOLS_MAILSERVER_MAIL_STORE_H
#define ZELIEML_TOOLS_MAILSERVER_MAIL_STORE_H

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zelieml::mailserver
{

class mail_store
{
public:
    struct entry {
        std::string id;  // never given again; printable, no blanks, at most 70 characters
        std::size_t bytes;
    };

    virtual ~mail_store() = default;

    // Keeps a mail. Throws std::runtime_error when it cannot.
    virtual void add(std::string const& text) = 0;

    // What is there, the oldest first.
    virtual std::vector<entry> list() = 0;

    // Nothing when the mail is gone.
    virtual std::optional<std::string> read(std::string const& id) = 0;

    // Removes the mail if it is still there; false when it is there and cannot be removed.
    virtual bool remove(std::string const& id) = 0;
};

// Mails live as long as the store.
std::unique_ptr<mail_store> make_memory_store();

// Mails are files of a Maildir: written in tmp, then renamed into new. Those in new and cur are
// what is there, whoever brought them. The directories are made when they are missing; throws
// std::runtime_error when they cannot be.
std::unique_ptr<mail_store> make_maildir_store(std::string const& directory);

}  // namespace zelieml::mailserver

#endif
