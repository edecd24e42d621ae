#ifndef QUOREL_KOVCERT_QXCI_QXCI_H
#define QUOREL_KOVCERT_QXCI_QXCI_H

/* The crypto provider interface, version 1.7.
 *
 * A provider is a shared library that does cryptography for the library that loads it (the owner):
 * TLS streams, block encryption, block hashing, password hashing, signatures, or some of these. It
 * exports the entry points at the end of this file; all else goes through tables of functions that
 * these fill. This header is all that a provider needs. It compiles as C11 and as C++; one in C++
 * may also use kit/providerkit.h.
 *
 * How a provider is used
 *
 *   1. The owner opens the library and looks up QXCIGetVersion, QXCIGetEnvIface and
 *      QXCIGetErrorIface, without which it refuses the library, and the other six, each of which
 *      may be missing: the provider then has none of those objects.
 *   2. It calls QXCIGetVersion. Only api_major 1, api_minor 7 and impl_id 0 are accepted.
 *   3. It calls the getters, each with a table of null pointers. One that returns QXCI_ERROR makes
 *      the owner close the library.
 *   4. It creates an environment, asks which algorithms there are, creates objects in it, uses and
 *      destroys them.
 *   5. It destroys the environment after all of its objects, and closes the library.
 *
 * Several environments may exist at once, each with callbacks and options of its own.
 *
 * Results and errors
 *
 * Nothing is thrown across this interface, no signal is raised in the process and nothing is
 * printed. Creation returns a handle, or null with the reason in the error record that it was
 * given. An operation on an object returns QXCI_OK or QXCI_ERROR (reads and writes: one of
 * QXCI_IO_...), and the object keeps the reason until its next operation; get_last_error_func shows
 * it. The record shown stays the object's: the owner copies it and never frees it. Before any
 * failure it is all zero.
 *
 * An error record that the owner passes is all zero on entry. A provider that fails sets the code,
 * the system code if there is one, and the parameters that the comment at the code names. A record
 * filled by any function but the creation of an environment is emptied with destroy_func of
 * a_qxci_error_iface; one filled by that has no environment to go with, so the owner gives its
 * parameters back through its own free_cb.
 *
 * Memory
 *
 * A provider takes all memory, for its objects as well as for error parameters, from the callbacks
 * of the environment and gives it back through them: after the last destroy_func nothing is left.
 * alloc_cb may return null, which ends the operation with QxciErrNoMemory, all undone. Strings,
 * keys, option lists and buffers that the owner passes belong to the owner and are valid during the
 * call only, unless stated otherwise; what a provider needs longer it copies. Secrets are wiped
 * before their memory goes back.
 *
 * Threads
 *
 * Functions of different environments, and of different objects of one environment, may be called
 * at the same time. One object is used by one thread at a time, though not always by the same one;
 * a stream and its connections count as one object in this. Creating and destroying objects and
 * asking for algorithms may happen on several threads at once. An environment is created and
 * destroyed while no other call on it runs.
 *
 * Names of algorithms and options compare without regard to case (ASCII letters).
 */

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Results ------------------------------------------------------------------------------- */

typedef unsigned char a_qxci_byte;

/* What operations return. */
typedef int32_t a_qxci_result;
enum { QXCI_OK = 0, QXCI_ERROR = 1 };

/* What reads and writes of connections return, the owner's callbacks for raw bytes included. */
typedef int32_t a_qxci_io_result;
enum {
    QXCI_IO_OK = 0,
    QXCI_IO_ERROR = 1,
    QXCI_IO_WOULD_BLOCK = 2,   /* nothing was done; the same call may succeed later */
    QXCI_IO_GRACEFUL_CLOSE = 3 /* the peer has ended the session in the way the protocol has */
};

/* The reasons for failures. P: the first parameter says what the comment names. S: the system code
 * is an error number of the operating system or of a library behind the provider. */
typedef enum a_dbqxci_error {
    QxciErrOK = 0,
    QxciErrNoMemory = 1,
    QxciErrCantFindCertFile = 2, /* P: the file */
    QxciErrBadCertFile = 3,      /* S */
    QxciErrBadCertPassword = 4,
    QxciErrNoCertificates = 5,  /* P: the file that holds none */
    QxciErrCertExpired = 6,     /* P: the subject; also for one not yet valid */
    QxciErrInitError = 7,       /* S: something was not set up for the operation */
    QxciErrIOError = 8,         /* S */
    QxciErrHandshakeFailed = 9, /* S */
    QxciErrWouldBlock = 10,     /* S */
    QxciErrCantFindTLSDLL = 11, /* S */
    QxciErrConnectionClosed = 12,
    QxciErrBadCompany = 13,    /* P: the company that was asked for */
    QxciErrBadUnit = 14,       /* P: the unit that was asked for */
    QxciErrBadCommonName = 15, /* P: the name that was asked for */
    QxciErrOpenSSLError = 16,  /* S */
    QxciErrHandshakeTimedOut = 17,
    QxciErrMissingCertFile = 18,
    QxciErrMissingCertPassword = 19,
    QxciErrSpecifiedCertExpired = 20,
    QxciErrBadEncryptionAlgorithm = 21, /* an unknown stream or block encryption algorithm */
    QxciErrBadHashAlgorithm = 22,       /* an unknown hash algorithm */
    QxciErrBadOption = 23,              /* P: the option, which the provider does not know */
    QxciErrCerticomError = 24,          /* S */
    QxciErrFipsNotAvailable = 25,       /* P: the library that is missing */
    QxciErrMissingDll = 26,             /* P: the library that is missing, given twice */
    QxciErrDllMismatch = 27,
    QxciErrOptionError = 28, /* P: the option or argument whose value is no good */
    QxciErrKeyMissing = 29,
    QxciErrMissingIdentityFile = 30,
    QxciErrFipsDisabled = 31,
    QxciErrFipsNotAvailableOnPlatform = 32,
    QxciErrFipsNotSupportedByAlgorithm = 33,
    QxciErrBadCert = 34,
    QxciErrBadECCCert = 35,
    QxciErrBadRSACert = 36,
    QxciErrUnknown = 37 /* S */
} a_dbqxci_error;

/* A failure. All zero: none. */
typedef struct a_qxci_error {
    uint32_t code;        /* an a_dbqxci_error */
    uint32_t system_code; /* 0 when there is none */
    /* Null, or an array of strings that ends with a null pointer. The array and each string are
     * allocations of their own, from alloc_cb. */
    char** parm_list;
} a_qxci_error;

/* ---- Option values --------------------------------------------------------------------------- */

/* What the value of an option that is on or off says, "FIPS" being one: 1 for "yes", "y", "true",
 * "on" or "1", 0 for "no", "n", "false", "off" or "0", without regard to case (ASCII letters), and
 * -1 for any other text, which is QxciErrOptionError. The owner and providers read them alike. */
static inline int qxci_yes_or_no(const char* text) {
    static const char* const words[] = {"no",   "yes", "n",  "y", "false",
                                        "true", "off", "on", "0", "1"};
    for (int number = 0; number < 10; ++number) {
        const char* word = words[number];
        const char* c = text;
        while (*word != '\0' && *word == (*c >= 'A' && *c <= 'Z' ? *c - 'A' + 'a' : *c)) {
            ++word;
            ++c;
        }
        if (*word == '\0' && *c == '\0') return number % 2;
    }
    return -1;
}

/* ---- What the owner provides ---------------------------------------------------------------- */

/* Takes a line for the owner's log. The lower the level, the more important; a negative level is
 * not logged. `data` are bytes that belong to it, or null. `context` is what came with the table
 * that the callback was in. Returns 0. */
typedef int (*a_qxci_log_cb)(void* context, int level, const char* text, const a_qxci_byte* data,
                             unsigned data_len);

/* The callbacks behind an environment. The table stays the owner's and is valid and unchanged until
 * the environment is destroyed. Every callback gets the global context that was passed with the
 * table. Only the first three are sure to be there; any other may be null, and a provider then does
 * without. All may be called from any thread at any time while the environment exists. */
typedef struct a_qxci_callbacks {
    /* As malloc, realloc and free: aligned for any type, null when there is no memory (realloc_cb
     * then leaves the old memory as it is); free_cb ignores null. */
    void* (*alloc_cb)(void* global_context, size_t size);
    void* (*realloc_cb)(void* global_context, void* memory, size_t size);
    void (*free_cb)(void* global_context, void* memory);

    a_qxci_log_cb log_cb;

    /* A number that is the calling thread's own while the thread lives. */
    unsigned long (*threadid_cb)(void* global_context);

    /* Mutexes that are not recursive. Creation returns null when there is none to be had. */
    void* (*mutex_create_cb)(void* global_context);
    void (*mutex_destroy_cb)(void* global_context, void* mutex);
    void (*mutex_get_cb)(void* global_context, void* mutex);
    void (*mutex_give_cb)(void* global_context, void* mutex);

    /* Starts a thread that calls body(argument) and ends. Without this callback a provider has no
     * threads. */
    a_qxci_result (*create_thread_cb)(void* global_context, void (*body)(void* argument),
                                      void* argument);
} a_qxci_callbacks;

/* A list of options; the first of several with the same name counts. A provider that looks an
 * option up and finds it sets `used`, so that the owner can tell which were of no use to anyone. A
 * null list is an empty one. Options come in two ways:
 *
 * With an environment: all that the owner was configured with, for whatever provider. A provider
 * takes those it knows and passes over the others. The owner knows these: "dll_name", "tls_type",
 * "FIPS", "identity", "identity_file", "certificate_file", "identity_password",
 * "certificate_password", "trusted_certificates", "trusted_root_file", "trusted_root",
 * "trusted_root_files", "trusted_roots".
 *
 * With an object or a connection: meant for that alone. An option that the provider does not know
 * is an error, QxciErrBadOption. A client's connection is given "trusted_certificate", the file of
 * the certificates to trust, and what to demand of the server's certificate: "certificate_company",
 * "certificate_unit" and "certificate_name". */
typedef struct _a_qxci_user_option {
    const char* opt_name;
    const char* opt_value;
    bool used;
    struct _a_qxci_user_option* next;
} a_qxci_user_option;

/* The callbacks of a stream, called with the user data of its creation. The provider copies the
 * table; the entry may be null. */
typedef struct a_qxci_stream_callbacks {
    a_qxci_log_cb log_cb;
} a_qxci_stream_callbacks;

/* The callbacks of a connection, through which alone it sends and receives its raw bytes. They are
 * called with the user data of the connection's creation, on the thread that is in a call on the
 * connection, unless the provider is not synchronous. The provider copies the table. */
typedef struct a_qxci_conn_callbacks {
    /* Receives up to `len` bytes. QXCI_IO_OK: *got is the count, at least 1. QXCI_IO_WOULD_BLOCK:
     * nothing has arrived, or the peer has closed its side, which cannot be told apart: a provider
     * therefore does not go on asking for ever. QXCI_IO_ERROR: nothing more will arrive. */
    a_qxci_io_result (*read_cb)(void* user_data, unsigned char* buf, unsigned len, unsigned* got);

    /* Sends all of `len` bytes (QXCI_IO_OK), or fails for good (QXCI_IO_ERROR); never blocks
     * halfway. */
    a_qxci_io_result (*write_cb)(void* user_data, const unsigned char* data, unsigned len);

    a_qxci_log_cb log_cb; /* may be null */

    /* A provider that is not synchronous says that a read or write that would have blocked may be
     * tried again. May be null, and then a provider has to be synchronous. */
    void (*blocked_io_complete_cb)(void* user_data);

    /* A server asks whether a client's certificate (DER) that it has verified is welcome; non-zero:
     * yes. May be null: every verified one is. */
    int (*check_client_cert_cb)(void* user_data, const a_qxci_byte* certificate, unsigned len);
} a_qxci_conn_callbacks;

/* ---- Handles -------------------------------------------------------------------------------- */

/* Opaque to the owner: a provider points them at structures of its own. */
typedef struct a_qxci_env_handle* QXCIEnvironmentH;
typedef struct a_qxci_stream_handle* QXCIStreamH;
typedef struct a_qxci_stream_conn_handle* QXCIStreamConnH;
typedef struct a_qxci_pw_hasher_handle* QXCIPasswordHasherH;
typedef struct a_qxci_block_hasher_handle* QXCIBlockHasherH;
typedef struct a_qxci_block_encrypter_handle* QXCIBlockEncrypterH;
typedef struct a_qxci_sig_handler_handle* QXCISignatureHandlerH;

/* ---- The tables ----------------------------------------------------------------------------- */

/* In every table: an entry marked "required" must not be null when the table is offered at all; the
 * owner calls it without looking. Where another entry is null, the owner's call fails with
 * QxciErrUnknown, or returns what the entry's comment says.
 *
 * create_func takes an algorithm by name and create_with_id_func by number. An unknown one, a null
 * name included, is QxciErrBadEncryptionAlgorithm for streams and encrypters and
 * QxciErrBadHashAlgorithm for hashers.
 *
 * destroy_func ignores null. get_last_error_func never returns null.
 *
 * Results of no fixed length: *len is the room at `out` on entry and the bytes stored on return,
 * the zero byte at the end of a text included. When the room is too small, nothing is stored, *len
 * is the room needed, and the error is QxciErrOptionError with the parameter "out_len". */

/* Algorithm numbers. A provider of its own making may have others, below 255. */
enum {
    QXCI_STREAM_ECC_TLS = 2,
    QXCI_STREAM_RSA_TLS = 3,
    QXCI_STREAM_RSA_TLS_FIPS = 4,

    QXCI_ENC_AES128 = 2,
    QXCI_ENC_AES128_FIPS = 3,
    QXCI_ENC_AES256 = 4,
    QXCI_ENC_AES256_FIPS = 5,

    QXCI_HASH_SHA256 = 1,
    QXCI_HASH_SHA256_FIPS = 2,
    QXCI_HASH_SHA1 = 3,
    QXCI_HASH_SHA1_FIPS = 4,
    QXCI_HASH_MD5 = 5,
    QXCI_HASH_CRC32 = 6,

    QXCI_PW_HASH_PBKDF2_SHA256 = 1
};

/* The environment: what all objects of one owner have in common. */
typedef struct a_qxci_env_iface {
    /* Required. `component` names the owner, for log lines, and may be null. */
    QXCIEnvironmentH (*create_func)(const a_qxci_callbacks* callbacks, void* global_context,
                                    a_qxci_user_option* options, const char* component,
                                    a_qxci_error* error);
    /* Required. */
    void (*destroy_func)(QXCIEnvironmentH env);

    /* Whether the provider has the algorithm; a null name is none. Where one of these is null, the
     * owner takes it that there are none. */
    bool (*stream_alg_func)(QXCIEnvironmentH env, const char* name);
    bool (*stream_alg_id_func)(QXCIEnvironmentH env, a_qxci_byte id);
    bool (*block_enc_alg_func)(QXCIEnvironmentH env, const char* name);
    bool (*block_enc_alg_id_func)(QXCIEnvironmentH env, a_qxci_byte id);
    bool (*block_hash_alg_func)(QXCIEnvironmentH env, const char* name);
    bool (*block_hash_alg_id_func)(QXCIEnvironmentH env, a_qxci_byte id);
    bool (*pw_hash_alg_func)(QXCIEnvironmentH env, const char* name);
    bool (*pw_hash_alg_id_func)(QXCIEnvironmentH env, a_qxci_byte id);
} a_qxci_env_iface;

/* Error records that the owner has passed to a creation function. */
typedef struct a_qxci_error_iface {
    /* Required. Gives the parameters back through free_cb. The fields are left as they are, so the
     * owner does not look at the list again. */
    void (*destroy_func)(QXCIEnvironmentH env, a_qxci_error* error);
} a_qxci_error_iface;

typedef enum a_qxci_side { QXCI_CLIENT = 0, QXCI_SERVER = 1 } a_qxci_side;

/* Streams: what the TLS connections of one kind have in common. */
typedef struct a_qxci_stream_iface {
    /* Both required. `callbacks` may be null. */
    QXCIStreamH (*create_func)(QXCIEnvironmentH env, const a_qxci_stream_callbacks* callbacks,
                               void* user_data, const char* name, a_qxci_error* error);
    QXCIStreamH (*create_with_id_func)(QXCIEnvironmentH env,
                                       const a_qxci_stream_callbacks* callbacks, void* user_data,
                                       a_qxci_byte id, a_qxci_error* error);

    /* Called once, before the first connection. */
    a_qxci_result (*init_func)(QXCIStreamH stream, a_qxci_side side, a_qxci_user_option* options);

    /* 0 when this entry is null. */
    a_qxci_byte (*get_algorithm_id_func)(QXCIStreamH stream);

    /* Undoes init_func, after the last connection was destroyed. destroy_func does it too. */
    a_qxci_result (*fini_func)(QXCIStreamH stream);

    const a_qxci_error* (*get_last_error_func)(QXCIStreamH stream);
    void (*destroy_func)(QXCIStreamH stream);

    /* True when reads and writes have done all their work when they return. False when the provider
     * goes on with it in threads of its own and reports through blocked_io_complete_cb. */
    bool (*is_synchronous_func)(QXCIStreamH stream);
} a_qxci_stream_iface;

/* TLS connections. The handshake is part of the creation, or of the first reads and writes as far
 * as creation would have had to wait for the peer. */
typedef struct a_qxci_conn_iface {
    QXCIStreamConnH (*create_func)(QXCIStreamH stream, const a_qxci_conn_callbacks* callbacks,
                                   a_qxci_user_option* options, void* user_data,
                                   a_qxci_error* error);

    /* Reads up to `len` bytes of plain text. QXCI_IO_OK: *got is the count, at least 1; as many as
     * are there are enough. Otherwise *got is 0. */
    a_qxci_io_result (*read_func)(QXCIStreamConnH conn, a_qxci_byte* buf, size_t len, size_t* got);

    /* Writes all of `len` bytes (QXCI_IO_OK). After QXCI_IO_WOULD_BLOCK the owner calls again with
     * the same bytes, of which the provider remembers how much has been taken. */
    a_qxci_io_result (*write_func)(QXCIStreamConnH conn, const a_qxci_byte* data, size_t len);

    /* Sends what writes have kept back. */
    a_qxci_io_result (*flush_writes_func)(QXCIStreamConnH conn);

    const a_qxci_error* (*get_last_error_func)(QXCIStreamConnH conn);

    /* Tells the peer, if the session still stands and the callbacks do not block, and frees. */
    void (*destroy_func)(QXCIStreamConnH conn);
} a_qxci_conn_iface;

/* Password hashing: slow on purpose and with a random salt, for storing. The hash is a text. */
typedef struct a_qxci_pw_hash_iface {
    /* Both required. create_func takes the provider's best algorithm. */
    QXCIPasswordHasherH (*create_func)(QXCIEnvironmentH env, a_qxci_error* error);
    QXCIPasswordHasherH (*create_with_id_func)(QXCIEnvironmentH env, a_qxci_byte id,
                                               a_qxci_error* error);

    a_qxci_byte (*get_algorithm_id_func)(QXCIPasswordHasherH hasher);

    /* The most bytes that hash_func stores, the zero byte at the end included. */
    size_t (*get_max_hash_size_func)(QXCIPasswordHasherH hasher);

    /* Hashes `in_len` bytes of password. On entry *out is either a zero byte, and a new salt is
     * drawn, or a text that this function made earlier, whose salt and parameters are taken again.
     * To check a password, copy the stored hash to `out`, call, and compare: the texts are equal if
     * the passwords are. Any other text at `out` is QxciErrOptionError, "out". */
    a_qxci_result (*hash_func)(QXCIPasswordHasherH hasher, const a_qxci_byte* in, size_t in_len,
                               a_qxci_byte* out, size_t* out_len);

    const a_qxci_error* (*get_last_error_func)(QXCIPasswordHasherH hasher);
    void (*destroy_func)(QXCIPasswordHasherH hasher);
} a_qxci_pw_hash_iface;

/* Hashing of data that comes in pieces. */
typedef struct a_qxci_hash_iface {
    /* Both required. */
    QXCIBlockHasherH (*create_func)(QXCIEnvironmentH env, const char* name, a_qxci_error* error);
    QXCIBlockHasherH (*create_with_id_func)(QXCIEnvironmentH env, a_qxci_byte id,
                                            a_qxci_error* error);

    a_qxci_byte (*get_algorithm_id_func)(QXCIBlockHasherH hasher);

    /* The bytes that end_hash_func stores. */
    size_t (*get_max_hash_size_func)(QXCIBlockHasherH hasher);

    /* The bytes that the algorithm takes at a time. Pieces may have any length. */
    size_t (*get_block_size_func)(QXCIBlockHasherH hasher);

    /* begin, add any number of times, end; then begin again. An add or end without a begin is
     * QxciErrInitError. A begin drops what was added before. */
    a_qxci_result (*begin_hash_func)(QXCIBlockHasherH hasher);
    a_qxci_result (*add_data_func)(QXCIBlockHasherH hasher, const a_qxci_byte* data, size_t len);
    a_qxci_result (*end_hash_func)(QXCIBlockHasherH hasher, a_qxci_byte* out, size_t* out_len);

    const a_qxci_error* (*get_last_error_func)(QXCIBlockHasherH hasher);
    void (*destroy_func)(QXCIBlockHasherH hasher);
} a_qxci_hash_iface;

/* Flags of encryption and decryption. One that the provider does not know is QxciErrBadOption,
 * "flags". */
enum {
    /* The data continues that of the last call in the same direction, instead of being a message of
     * its own. */
    QXCI_ENC_CONTINUE = 1
};

/* Encryption in place. */
typedef struct a_qxci_enc_iface {
    /* Both required. No key is QxciErrKeyMissing, one of the wrong length QxciErrOptionError,
     * "key". */
    QXCIBlockEncrypterH (*create_func)(QXCIEnvironmentH env, const char* name,
                                       const a_qxci_byte* key, size_t key_len,
                                       a_qxci_user_option* options, a_qxci_error* error);
    QXCIBlockEncrypterH (*create_with_id_func)(QXCIEnvironmentH env, a_qxci_byte id,
                                               const a_qxci_byte* key, size_t key_len,
                                               a_qxci_user_option* options, a_qxci_error* error);

    a_qxci_byte (*get_algorithm_id_func)(QXCIBlockEncrypterH encrypter);

    /* `len` bytes are replaced by as many. `len` is a multiple of the block size, else the data is
     * left alone and the error is QxciErrOptionError, "len". */
    a_qxci_result (*encrypt_func)(QXCIBlockEncrypterH encrypter, a_qxci_byte* data, size_t len,
                                  unsigned flags);
    a_qxci_result (*decrypt_func)(QXCIBlockEncrypterH encrypter, a_qxci_byte* data, size_t len,
                                  unsigned flags);

    size_t (*get_block_size_func)(QXCIBlockEncrypterH encrypter);
    const a_qxci_error* (*get_last_error_func)(QXCIBlockEncrypterH encrypter);
    void (*destroy_func)(QXCIBlockEncrypterH encrypter);
} a_qxci_enc_iface;

/* Signatures over three texts (a database signature) or two (a connection signature). What the
 * texts say is the owner's affair; a null one is QxciErrOptionError. No two different lists of
 * texts are signed alike, and a signature of one kind is none of the other. A signature is text. */
typedef struct a_qxci_sig_iface {
    /* Required. The keys are among the options. */
    QXCISignatureHandlerH (*create_func)(QXCIEnvironmentH env, a_qxci_user_option* options,
                                         a_qxci_error* error);

    /* Signing without a private key is QxciErrKeyMissing. */
    a_qxci_result (*create_dbsig_func)(QXCISignatureHandlerH handler, const char* a, const char* b,
                                       const char* c, char* out, size_t* out_len);
    a_qxci_result (*create_connsig_func)(QXCISignatureHandlerH handler, const char* a,
                                         const char* b, char* out, size_t* out_len);

    /* QXCI_OK: *ok tells whether the signature is right; one that is not even well formed is not.
     * Verifying without a public key is QxciErrKeyMissing. *ok is false after an error. */
    a_qxci_result (*verify_dbsig_func)(QXCISignatureHandlerH handler, const char* a, const char* b,
                                       const char* c, const char* sig, bool* ok);
    a_qxci_result (*verify_connsig_func)(QXCISignatureHandlerH handler, const char* a,
                                         const char* b, const char* sig, bool* ok);

    const a_qxci_error* (*get_last_error_func)(QXCISignatureHandlerH handler);
    void (*destroy_func)(QXCISignatureHandlerH handler);
} a_qxci_sig_iface;

/* ---- The entry points ----------------------------------------------------------------------- */

/* How a provider exports them; a provider may define this for itself before it includes this. */
#ifndef QXCI_EXPORT
#define QXCI_EXPORT __attribute__((visibility("default")))
#endif

/* In this order. */
typedef struct a_qxci_version {
    uint16_t api_major; /* QXCI_API_MAJOR */
    uint16_t api_minor; /* QXCI_API_MINOR */
    uint16_t impl_id;   /* QXCI_IMPL_ID */
    uint16_t impl_ver;  /* the provider's own version; any */
} a_qxci_version;

enum { QXCI_API_MAJOR = 1, QXCI_API_MINOR = 7, QXCI_IMPL_ID = 0 };

QXCI_EXPORT a_qxci_version QXCIGetVersion(void);

/* Each fills the table and returns QXCI_OK, or returns QXCI_ERROR. */
QXCI_EXPORT a_qxci_result QXCIGetEnvIface(a_qxci_env_iface* iface);
QXCI_EXPORT a_qxci_result QXCIGetErrorIface(a_qxci_error_iface* iface);
QXCI_EXPORT a_qxci_result QXCIGetStreamIface(a_qxci_stream_iface* iface);
QXCI_EXPORT a_qxci_result QXCIGetStreamConnIface(a_qxci_conn_iface* iface);
QXCI_EXPORT a_qxci_result QXCIGetPasswordHasherIface(a_qxci_pw_hash_iface* iface);
QXCI_EXPORT a_qxci_result QXCIGetBlockHasherIface(a_qxci_hash_iface* iface);
QXCI_EXPORT a_qxci_result QXCIGetBlockEncrypterIface(a_qxci_enc_iface* iface);
QXCI_EXPORT a_qxci_result QXCIGetSignatureHandlerIface(a_qxci_sig_iface* iface);

#ifdef __cplusplus
}
#endif

#endif
