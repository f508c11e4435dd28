/* Uses the parser from C: prints the events of a document and the result. */
#include <dalnim/xml/nim_opbparse.h>

#include <stdio.h>
#include <string.h>

static int inner(PDS_PARSE_H handle, pds_parse_cb_type_e type, void* user_data, void* user_data_alt,
                 char* tag, char* full_tag, char* data, size_t entries, char** attributes)
{
    (void)handle;
    (void)user_data;
    (void)full_tag;
    (void)entries;
    (void)attributes;
    printf("%s %d %s %s\n", (const char*)user_data_alt, (int)type, tag, data == NULL ? "-" : data);
    return 0;
}

static int start(void* context, char* tag, char* full_tag, size_t entries, char** attributes)
{
    static char name[] = "inner";
    size_t i = 0;
    printf("start %s %s", tag, full_tag);
    for (i = 0; i < entries; i += 2) {
        printf(" %s=%s", attributes[i], attributes[i + 1]);
    }
    printf("\n");
    return strcmp(tag, "inner") == 0 ? nim_pdsParsePushCommonCB(inner, name, 0, *(PDS_PARSE_H*)context) : 0;
}

static int end(void* context, char* tag, char* full_tag)
{
    (void)context;
    printf("end %s %s\n", tag, full_tag);
    return 0;
}

static int data(void* context, int is_cdata, char* text, char* full_tag)
{
    (void)context;
    printf("%s %s %s\n", is_cdata ? "cdata" : "data", full_tag, text);
    return 0;
}

int main(int argc, char** argv)
{
    PDS_PARSE_H handle = NULL;
    int code = 0;
    int i = 0;
    if (nim_pdsParseInit(0, &handle, start, end, data, NULL, NULL, &handle) != PDS_PARSE_OK) {
        return 1;
    }
    for (i = 1; i < argc; ++i) {
        code =
            nim_pdsParseBuffer(argv[i], PDS_PARSE_F_SKIP_WS | (i == argc - 1 ? PDS_PARSE_F_LAST : 0), handle);
    }
    printf("%d %s\n", code, nim_pdsParseGetErrorInfo(handle));
    if (nim_pdsParseDestroy(&handle) != PDS_PARSE_OK || handle != NULL) {
        return 1;
    }
    return 0;
}
