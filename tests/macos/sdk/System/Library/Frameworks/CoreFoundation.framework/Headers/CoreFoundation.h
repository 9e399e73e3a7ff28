/*
 * CoreFoundation.h - the part of CoreFoundation that the library and its tests use
 *
 * Our own declarations, after the public reference: names, types and values are the framework's,
 * nothing else is. They are for checking on a machine without the framework; on macOS the
 * framework's own header is used.
 */

#ifndef ZELIEML_SDK_COREFOUNDATION_H
#define ZELIEML_SDK_COREFOUNDATION_H

#include <CoreFoundation/SDKSince.h>
#include <stddef.h>
#include <stdint.h>

/* ---- basic types */

typedef unsigned char Boolean;
typedef unsigned char UInt8;
typedef signed char   SInt8;
typedef uint16_t      UInt16;
typedef int16_t       SInt16;
#if defined(__LP64__)
typedef unsigned int UInt32;
typedef signed int   SInt32;
#else
typedef unsigned long  UInt32;
typedef signed long    SInt32;
#endif
typedef int64_t  SInt64;
typedef uint64_t UInt64;
typedef SInt32   OSStatus;

#if !defined(TRUE)
#define TRUE 1
#endif
#if !defined(FALSE)
#define FALSE 0
#endif

typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef unsigned long CFHashCode;
typedef signed long   CFIndex;

typedef void const*                    CFTypeRef;
typedef struct __CFAllocator const*    CFAllocatorRef;
typedef struct __CFArray const*        CFArrayRef;
typedef struct __CFArray*              CFMutableArrayRef;
typedef struct __CFBoolean const*      CFBooleanRef;
typedef struct __CFData const*         CFDataRef;
typedef struct __CFData*               CFMutableDataRef;
typedef struct __CFDictionary const*   CFDictionaryRef;
typedef struct __CFDictionary*         CFMutableDictionaryRef;
typedef struct __CFError*              CFErrorRef;
typedef struct __CFNotificationCenter* CFNotificationCenterRef;
typedef struct __CFNumber const*       CFNumberRef;
typedef struct __CFRunLoop*            CFRunLoopRef;
typedef struct __CFString const*       CFStringRef;
typedef struct __CFString*             CFMutableStringRef;
typedef struct __CFTimeZone const*     CFTimeZoneRef;
typedef double                         CFTimeInterval;
typedef CFTimeInterval                 CFAbsoluteTime;
typedef UInt32                         CFStringEncoding;

typedef struct {
    CFIndex location;
    CFIndex length;
} CFRange;

static inline CFRange CFRangeMake(CFIndex location, CFIndex length)
{
    CFRange range;
    range.location = location;
    range.length   = length;
    return range;
}

typedef enum {
    kCFCompareLessThan    = -1,
    kCFCompareEqualTo     = 0,
    kCFCompareGreaterThan = 1
} CFComparisonResult;

SDK_EXTERN CFAllocatorRef const kCFAllocatorDefault SDK_SINCE(10.0);
SDK_EXTERN CFAllocatorRef const kCFAllocatorNull    SDK_SINCE(10.0);

SDK_EXTERN CFTypeID  CFGetTypeID(CFTypeRef object) SDK_SINCE(10.0);
SDK_EXTERN CFTypeRef CFRetain(CFTypeRef object) SDK_SINCE(10.0);
SDK_EXTERN void      CFRelease(CFTypeRef object) SDK_SINCE(10.0);
SDK_EXTERN CFTypeRef CFAutorelease(CFTypeRef object) SDK_SINCE(10.9);
SDK_EXTERN CFIndex   CFGetRetainCount(CFTypeRef object) SDK_SINCE(10.0);
SDK_EXTERN Boolean   CFEqual(CFTypeRef one, CFTypeRef other) SDK_SINCE(10.0);

/* ---- booleans and numbers */

SDK_EXTERN CFBooleanRef const kCFBooleanTrue  SDK_SINCE(10.0);
SDK_EXTERN CFBooleanRef const kCFBooleanFalse SDK_SINCE(10.0);

SDK_EXTERN CFTypeID CFBooleanGetTypeID(void) SDK_SINCE(10.0);
SDK_EXTERN Boolean  CFBooleanGetValue(CFBooleanRef boolean) SDK_SINCE(10.0);

typedef enum {
    kCFNumberSInt8Type    = 1,
    kCFNumberSInt16Type   = 2,
    kCFNumberSInt32Type   = 3,
    kCFNumberSInt64Type   = 4,
    kCFNumberFloat32Type  = 5,
    kCFNumberFloat64Type  = 6,
    kCFNumberCharType     = 7,
    kCFNumberShortType    = 8,
    kCFNumberIntType      = 9,
    kCFNumberLongType     = 10,
    kCFNumberLongLongType = 11
} CFNumberTypes;
typedef CFIndex CFNumberType;

SDK_EXTERN CFTypeID    CFNumberGetTypeID(void) SDK_SINCE(10.0);
SDK_EXTERN CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type,
                                      void const* value) SDK_SINCE(10.0);
SDK_EXTERN Boolean     CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value)
    SDK_SINCE(10.0);

/* ---- strings */

enum {
    kCFStringEncodingMacRoman = 0,
    kCFStringEncodingASCII    = 0x0600,
    kCFStringEncodingUTF8     = 0x08000100
};
#define kCFStringEncodingInvalidId (0xffffffffU)

SDK_EXTERN CFTypeID         CFStringGetTypeID(void) SDK_SINCE(10.0);
SDK_EXTERN CFStringEncoding CFStringGetSystemEncoding(void) SDK_SINCE(10.0);
SDK_EXTERN CFStringEncoding CFStringConvertIANACharSetNameToEncoding(CFStringRef name)
    SDK_SINCE(10.0);
SDK_EXTERN CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, char const* text,
                                                 CFStringEncoding encoding) SDK_SINCE(10.0);
SDK_EXTERN CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, UInt8 const* bytes,
                                               CFIndex size, CFStringEncoding encoding,
                                               Boolean is_external) SDK_SINCE(10.0);
SDK_EXTERN CFStringRef CFStringCreateCopy(CFAllocatorRef allocator, CFStringRef text)
    SDK_SINCE(10.0);
SDK_EXTERN CFIndex     CFStringGetLength(CFStringRef text) SDK_SINCE(10.0);
SDK_EXTERN Boolean     CFStringGetCString(CFStringRef text, char* buffer, CFIndex size,
                                          CFStringEncoding encoding) SDK_SINCE(10.0);
SDK_EXTERN char const* CFStringGetCStringPtr(CFStringRef text, CFStringEncoding encoding)
    SDK_SINCE(10.0);
SDK_EXTERN CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding)
    SDK_SINCE(10.0);
SDK_EXTERN CFComparisonResult CFStringCompare(CFStringRef one, CFStringRef other,
                                              CFOptionFlags options) SDK_SINCE(10.0);

/* CFSTR makes a constant string that lives for ever. */
#if defined(__APPLE__)
#define CFSTR(text) ((CFStringRef)__builtin___CFStringMakeConstantString("" text ""))
#else
SDK_EXTERN CFStringRef __CFStringMakeConstantString(char const* text);
#define CFSTR(text) __CFStringMakeConstantString("" text "")
#endif

/* ---- data */

SDK_EXTERN CFTypeID  CFDataGetTypeID(void) SDK_SINCE(10.0);
SDK_EXTERN CFDataRef CFDataCreate(CFAllocatorRef allocator, UInt8 const* bytes, CFIndex size)
    SDK_SINCE(10.0);
SDK_EXTERN CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef allocator, UInt8 const* bytes,
                                                 CFIndex size, CFAllocatorRef deallocator)
    SDK_SINCE(10.0);
SDK_EXTERN CFIndex      CFDataGetLength(CFDataRef data) SDK_SINCE(10.0);
SDK_EXTERN UInt8 const* CFDataGetBytePtr(CFDataRef data) SDK_SINCE(10.0);
SDK_EXTERN void CFDataGetBytes(CFDataRef data, CFRange range, UInt8* buffer) SDK_SINCE(10.0);

/* ---- arrays */

typedef void const* (*CFArrayRetainCallBack)(CFAllocatorRef allocator, void const* value);
typedef void (*CFArrayReleaseCallBack)(CFAllocatorRef allocator, void const* value);
typedef CFStringRef (*CFArrayCopyDescriptionCallBack)(void const* value);
typedef Boolean (*CFArrayEqualCallBack)(void const* one, void const* other);

typedef struct {
    CFIndex                        version;
    CFArrayRetainCallBack          retain;
    CFArrayReleaseCallBack         release;
    CFArrayCopyDescriptionCallBack copyDescription;
    CFArrayEqualCallBack           equal;
} CFArrayCallBacks;

SDK_EXTERN CFArrayCallBacks const kCFTypeArrayCallBacks SDK_SINCE(10.0);

SDK_EXTERN CFTypeID          CFArrayGetTypeID(void) SDK_SINCE(10.0);
SDK_EXTERN CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                  CFArrayCallBacks const* callbacks)
    SDK_SINCE(10.0);
SDK_EXTERN CFIndex     CFArrayGetCount(CFArrayRef array) SDK_SINCE(10.0);
SDK_EXTERN void const* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) SDK_SINCE(10.0);
SDK_EXTERN void CFArrayAppendValue(CFMutableArrayRef array, void const* value) SDK_SINCE(10.0);

/* ---- dictionaries */

typedef void const* (*CFDictionaryRetainCallBack)(CFAllocatorRef allocator, void const* value);
typedef void (*CFDictionaryReleaseCallBack)(CFAllocatorRef allocator, void const* value);
typedef CFStringRef (*CFDictionaryCopyDescriptionCallBack)(void const* value);
typedef Boolean (*CFDictionaryEqualCallBack)(void const* one, void const* other);
typedef CFHashCode (*CFDictionaryHashCallBack)(void const* value);

typedef struct {
    CFIndex                             version;
    CFDictionaryRetainCallBack          retain;
    CFDictionaryReleaseCallBack         release;
    CFDictionaryCopyDescriptionCallBack copyDescription;
    CFDictionaryEqualCallBack           equal;
    CFDictionaryHashCallBack            hash;
} CFDictionaryKeyCallBacks;

typedef struct {
    CFIndex                             version;
    CFDictionaryRetainCallBack          retain;
    CFDictionaryReleaseCallBack         release;
    CFDictionaryCopyDescriptionCallBack copyDescription;
    CFDictionaryEqualCallBack           equal;
} CFDictionaryValueCallBacks;

SDK_EXTERN CFDictionaryKeyCallBacks const kCFTypeDictionaryKeyCallBacks       SDK_SINCE(10.0);
SDK_EXTERN CFDictionaryKeyCallBacks const kCFCopyStringDictionaryKeyCallBacks SDK_SINCE(10.0);
SDK_EXTERN CFDictionaryValueCallBacks const kCFTypeDictionaryValueCallBacks   SDK_SINCE(10.0);

SDK_EXTERN CFTypeID        CFDictionaryGetTypeID(void) SDK_SINCE(10.0);
SDK_EXTERN CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, void const** keys,
                                              void const** values, CFIndex count,
                                              CFDictionaryKeyCallBacks const*   key_callbacks,
                                              CFDictionaryValueCallBacks const* value_callbacks)
    SDK_SINCE(10.0);
SDK_EXTERN CFMutableDictionaryRef CFDictionaryCreateMutable(
    CFAllocatorRef allocator, CFIndex capacity, CFDictionaryKeyCallBacks const* key_callbacks,
    CFDictionaryValueCallBacks const* value_callbacks) SDK_SINCE(10.0);
SDK_EXTERN CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary) SDK_SINCE(10.0);
SDK_EXTERN Boolean CFDictionaryContainsKey(CFDictionaryRef dictionary, void const* key)
    SDK_SINCE(10.0);
SDK_EXTERN void const* CFDictionaryGetValue(CFDictionaryRef dictionary, void const* key)
    SDK_SINCE(10.0);
SDK_EXTERN void CFDictionaryAddValue(CFMutableDictionaryRef dictionary, void const* key,
                                     void const* value) SDK_SINCE(10.0);
SDK_EXTERN void CFDictionarySetValue(CFMutableDictionaryRef dictionary, void const* key,
                                     void const* value) SDK_SINCE(10.0);

/* ---- errors */

SDK_EXTERN CFTypeID    CFErrorGetTypeID(void) SDK_SINCE(10.5);
SDK_EXTERN CFStringRef CFErrorGetDomain(CFErrorRef error) SDK_SINCE(10.5);
SDK_EXTERN CFIndex     CFErrorGetCode(CFErrorRef error) SDK_SINCE(10.5);

/* ---- time */

SDK_EXTERN CFAbsoluteTime CFAbsoluteTimeGetCurrent(void) SDK_SINCE(10.0);

SDK_EXTERN CFTypeID       CFTimeZoneGetTypeID(void) SDK_SINCE(10.0);
SDK_EXTERN CFTimeZoneRef  CFTimeZoneCopyDefault(void) SDK_SINCE(10.0);
SDK_EXTERN CFTimeInterval CFTimeZoneGetSecondsFromGMT(CFTimeZoneRef zone, CFAbsoluteTime at)
    SDK_SINCE(10.0);

/* ---- run loops */

enum {
    kCFRunLoopRunFinished      = 1,
    kCFRunLoopRunStopped       = 2,
    kCFRunLoopRunTimedOut      = 3,
    kCFRunLoopRunHandledSource = 4
};

SDK_EXTERN CFStringRef const kCFRunLoopDefaultMode SDK_SINCE(10.0);

SDK_EXTERN CFRunLoopRef CFRunLoopGetMain(void) SDK_SINCE(10.0);
SDK_EXTERN void         CFRunLoopStop(CFRunLoopRef loop) SDK_SINCE(10.0);
SDK_EXTERN SInt32       CFRunLoopRunInMode(CFStringRef mode, CFTimeInterval seconds,
                                           Boolean return_after_one) SDK_SINCE(10.0);

/* ---- notification centers */

typedef void (*CFNotificationCallback)(CFNotificationCenterRef center, void* observer,
                                       CFStringRef name, void const* object, CFDictionaryRef info);

typedef enum {
    CFNotificationSuspensionBehaviorDrop               = 1,
    CFNotificationSuspensionBehaviorCoalesce           = 2,
    CFNotificationSuspensionBehaviorHold               = 3,
    CFNotificationSuspensionBehaviorDeliverImmediately = 4
} CFNotificationSuspensionBehaviors;
typedef CFIndex CFNotificationSuspensionBehavior;

enum {
    kCFNotificationDeliverImmediately = 1UL << 0,
    kCFNotificationPostToAllSessions  = 1UL << 1
};

SDK_EXTERN CFTypeID                CFNotificationCenterGetTypeID(void) SDK_SINCE(10.0);
SDK_EXTERN CFNotificationCenterRef CFNotificationCenterGetDistributedCenter(void) SDK_SINCE(10.0);

/* The center does not retain the observer, copies the name and retains the object. */
SDK_EXTERN void CFNotificationCenterAddObserver(CFNotificationCenterRef center,
                                                void const* observer, CFNotificationCallback proc,
                                                CFStringRef name, void const* object,
                                                CFNotificationSuspensionBehavior behaviour)
    SDK_SINCE(10.0);
SDK_EXTERN void CFNotificationCenterRemoveObserver(CFNotificationCenterRef center,
                                                   void const* observer, CFStringRef name,
                                                   void const* object) SDK_SINCE(10.0);
SDK_EXTERN void CFNotificationCenterRemoveEveryObserver(CFNotificationCenterRef center,
                                                        void const* observer) SDK_SINCE(10.0);
SDK_EXTERN void CFNotificationCenterPostNotification(CFNotificationCenterRef center,
                                                     CFStringRef name, void const* object,
                                                     CFDictionaryRef info,
                                                     Boolean deliver_immediately) SDK_SINCE(10.0);
SDK_EXTERN void
CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterRef center, CFStringRef name,
                                                void const* object, CFDictionaryRef info,
                                                CFOptionFlags options) SDK_SINCE(10.3);

#endif
