/*
 * server_fields.h - a server record from the command line, for the examples that need one
 */

#ifndef ZELIEML_EXAMPLES_SERVER_FIELDS_H
#define ZELIEML_EXAMPLES_SERVER_FIELDS_H

/*
 * server_from_arguments - make a server record
 *
 * arguments  strings "field=value", and a null at the end:
 *              pop_server, pop_port (110 unless set), pop_account, pop_passwd,
 *              pop_auth_type ("pop", which is the default, or "apop"),
 *              pop_wait_time (milliseconds after a login for POP before SMTP, 0 unless set),
 *              smtp_server, smtp_port (25 unless set), smtp_account, smtp_passwd,
 *              smtp_auth, pop_before_smtp ("on", or "off", which is the default),
 *              smtp_tls, pop_tls ("tls", "starttls", or "no", which is the default),
 *              tls_ca_file (unless set, the authorities that the system trusts),
 *              domains (for the caller)
 *            The record points to these strings: they have to stay valid and unchanged until it is
 *            freed. The arguments of main do.
 *
 * Returns the record, to be freed with server_info_destroy, or null after a message on stderr.
 */
void *server_from_arguments(char **arguments);

/*
 * server_field - the value of one field
 *
 * Returns the value in the first argument that sets the field. If none does, returns the default,
 * or an empty string for fields without one. Returns null for a name that is no field.
 */
const char *server_field(char **arguments, const char *name);

#endif
