// spool.h - what a work directory holds for the program, besides settings and messages
//
//     DIR/undelivered/NAME      a message that failed twice; the folder is 0700
//     DIR/.zelieml/             0700, the service's own
//                  lock         locked (flock) while a service runs for DIR
//                  engine/      the work directory of the service's engine: the settings, as a
//                               link, and never a message
//                  reasons/NAME why the last attempt at a message failed, as JSON; waiting or
//                               undelivered, it has one name
//
// Any user may write to DIR. So nothing of this is used unless it belongs to the user who runs the
// program and others cannot write to it, and no link is followed.

#ifndef ZELIEML_TOOLS_ZELIEML_SPOOL_H
#define ZELIEML_TOOLS_ZELIEML_SPOOL_H

#endif
