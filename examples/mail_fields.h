/*
 * mail_fields.h - a message record from the command line, for the examples that send one
 */

#ifndef ZELIEML_EXAMPLES_MAIL_FIELDS_H
#define ZELIEML_EXAMPLES_MAIL_FIELDS_H

/*
 * mail_from_arguments - make a message record
 *
 * count, arguments  strings "field=value": from, to, cc, subject, replyto, messageid, encoding
 *                   ("utf-8" or "iso-2022-jp")
 *
 * The body is read from the standard input.
 *
 * Returns the record, to be freed with eml_msg_destroy, or null after a message on stderr.
 */
void *mail_from_arguments(int count, char **arguments);

#endif
