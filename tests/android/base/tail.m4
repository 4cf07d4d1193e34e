# SPDX-License-Identifier: Apache-2.0
role r;
role r types domain;
user u roles { r } level s0 range s0 - s0:c0;
sid kernel u:r:kernel:s0
sid unlabeled u:object_r:unlabeled:s0
