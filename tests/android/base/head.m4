# SPDX-License-Identifier: Apache-2.0
#
# A stand-in for Android's platform policy, as small as the daemon's policy allows: the classes that it
# names, the public attributes and macros that it uses, and what every vendor domain may do.
class process
class capability2
class dir
class file
class lnk_file
class chr_file
class sock_file
class unix_stream_socket
class unix_dgram_socket
class netlink_kobject_uevent_socket
class property_service

sid kernel
sid unlabeled

common file { ioctl read write create getattr setattr lock append map unlink link rename execute open watch }
common socket { ioctl read write create getattr setattr append bind connect getopt setopt sendto map }
class process { fork transition sigchld siginh rlimitinh noatsecure }
class capability2 { wake_alarm block_suspend }
class dir inherits file { add_name remove_name reparent search rmdir }
class file inherits file { entrypoint execute_no_trans }
class lnk_file inherits file
class chr_file inherits file
class sock_file inherits file
class unix_stream_socket inherits socket { connectto }
class unix_dgram_socket inherits socket
class netlink_kobject_uevent_socket inherits socket
class property_service { set }

sensitivity s0;
dominance { s0 }
category c0;
level s0:c0;
mlsconstrain file { create } (h1 dom h2);

define(`r_file_perms', `{ getattr open read ioctl lock map watch }')
define(`r_dir_perms', `{ open getattr read search ioctl lock watch }')
define(`r_dir_file', `
    allow $1 $2:dir r_dir_perms;
    allow $1 $2:{ file lnk_file } r_file_perms;
')
define(`init_daemon_domain', `
    allow init $1_exec:file { getattr open read execute map };
    allow init $1:process transition;
    allow $1 $1_exec:file { entrypoint open read execute getattr map };
    dontaudit init $1:process noatsecure;
    allow init $1:process { siginh rlimitinh };
    type_transition init $1_exec:process $1;
')
define(`get_prop', `allow $1 $2:file { getattr open read map };')
define(`set_prop', `
    allow $1 property_socket:sock_file write;
    allow $1 init:unix_stream_socket connectto;
    allow $1 $2:property_service set;
    get_prop($1, $2)
')
define(`vendor_internal_prop', `
    type $1, property_type, vendor_property_type, vendor_internal_property_type;
    neverallow { coredomain -init } $1:{ file property_service } *;
')

attribute domain;
attribute coredomain;
attribute dev_type;
attribute fs_type;
attribute sysfs_type;
attribute file_type;
attribute exec_type;
attribute vendor_file_type;
attribute data_file_type;
attribute core_data_file_type;
attribute property_type;
attribute vendor_property_type;
attribute vendor_internal_property_type;
