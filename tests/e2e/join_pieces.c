/* join_pieces.c - puts the message/partial pieces named on the command line together with GMime and
 * prints the whole message. */
#include <gmime/gmime.h>
#include <stdio.h>

enum { kMaxPieces = 1024 };

static GMimeMessagePartial* pieces[kMaxPieces];

static GMimeMessagePartial* read_piece(const char* path) {
    GMimeStream* stream = g_mime_stream_file_open(path, "r", NULL);
    if (stream == NULL) return NULL;
    GMimeParser* parser = g_mime_parser_new_with_stream(stream);
    GMimeMessage* message = g_mime_parser_construct_message(parser, NULL);
    GMimeObject* part = message != NULL ? g_mime_message_get_mime_part(message) : NULL;
    return part != NULL && GMIME_IS_MESSAGE_PARTIAL(part) ? GMIME_MESSAGE_PARTIAL(part) : NULL;
}

int main(int argc, char** argv) {
    g_mime_init();
    const size_t count = (size_t)argc - 1;
    if (count > kMaxPieces) return 1;
    for (size_t i = 0; i < count; ++i) {
        pieces[i] = read_piece(argv[i + 1]);
        if (pieces[i] == NULL) {
            fprintf(stderr, "join_pieces: %s is no piece\n", argv[i + 1]);
            return 1;
        }
    }
    GMimeMessage* whole = g_mime_message_partial_reconstruct_message(pieces, count);
    if (whole == NULL) return 1;
    char* text = g_mime_object_to_string(GMIME_OBJECT(whole), NULL);
    const int rc = fputs(text, stdout) >= 0 ? 0 : 1;
    g_free(text);
    return rc;
}
