/*
 * Foundation.h - the part of Foundation that the library uses
 *
 * Our own declarations, after the public reference; see <CoreFoundation/CoreFoundation.h>. For
 * Objective-C without reference counting by the compiler.
 */

#ifndef ZELIEML_SDK_FOUNDATION_H
#define ZELIEML_SDK_FOUNDATION_H

#include <CoreFoundation/CoreFoundation.h>

typedef signed char BOOL;
#define YES ((BOOL)1)
#define NO  ((BOOL)0)
#define nil NULL

#if defined(__LP64__)
typedef unsigned long NSUInteger;
#else
typedef unsigned int NSUInteger;
#endif

typedef NSUInteger NSStringEncoding;
enum {
    NSASCIIStringEncoding = 1,
    NSUTF8StringEncoding  = 4
};

#if defined(__OBJC__)

@class NSArray, NSError, NSString;

SDK_SINCE(10.0)
__attribute__((objc_root_class))
@interface NSObject {
    Class isa;
}
+ (id)alloc;
- (id)init;
- (id)retain;
- (oneway void)release;
- (id)autorelease;
- (void)dealloc;
@end

SDK_SINCE(10.0)
@interface NSAutoreleasePool : NSObject {
    void* state_;
}
+ (void)addObject:(id)object;
- (void)drain SDK_SINCE(10.4);
@end

SDK_SINCE(10.0)
@interface NSString : NSObject
+ (id)stringWithCString:(char const*)text encoding:(NSStringEncoding)encoding SDK_SINCE(10.4);
- (char const*)cStringUsingEncoding:(NSStringEncoding)encoding SDK_SINCE(10.4);
@end

SDK_SINCE(10.0)
@interface NSArray : NSObject
- (NSUInteger)count;
- (id)objectAtIndex:(NSUInteger)index;
@end

SDK_SINCE(10.0)
@interface NSError : NSObject
@end

SDK_SINCE(10.0)
@interface NSFileManager : NSObject
+ (NSFileManager*)defaultManager;
- (NSArray*)contentsOfDirectoryAtPath:(NSString*)path error:(NSError**)error SDK_SINCE(10.5);
@end

#endif

#endif
