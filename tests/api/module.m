/* module.m - the headers as a module, for Objective-C and Swift */

@import zelieml;

const char *key_of(void *eml);

const char *key_of(void *eml)
{
    return eml_stop(eml) == 0 ? KeyFrom : eml_version();
}
