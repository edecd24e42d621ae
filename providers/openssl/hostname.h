#ifndef QUOREL_PROVIDERS_OPENSSL_HOSTNAME_H
#define QUOREL_PROVIDERS_OPENSSL_HOSTNAME_H

/// True for a name that can stand in the server name indication (RFC 6066 section 3): labels of
/// letters, digits and hyphens (RFC 5890 section 2.3.1), no dot at the end, no IP address.
bool is_host_name(const char* name);

#endif
