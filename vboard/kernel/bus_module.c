// SPDX-License-Identifier: GPL-2.0
//
// An I2C bus whose chips live in a process: the kernel's own i2c-dev above, the
// device models behind /dev/vboard-i2c. One transfer at a time, as on wires.
//
//   read  /dev/vboard-i2c   the next transfer: a head, then every message, the bytes
//                           of written ones behind it
//   write /dev/vboard-i2c   its result (32 bits: number of messages or -errno), then
//                           the bytes of the messages that read
//
// stuck=1 holds a line of the bus low: transfers time out, as those of a bus driver do.
//
// Besides, a mains switch: cut_ns=N restarts the machine N ns later, from the timer's
// interrupt, with nothing written back.
#include <linux/hrtimer.h>
#include <linux/i2c.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/poll.h>
#include <linux/reboot.h>
#include <linux/sched.h>
#include <linux/uaccess.h>

#define BUS_NUMBER 1
#define MOST_BYTES 65536

struct transfer_head {
	u32 messages;
	u32 thread;
};

struct message_head {
	u16 address;
	u16 flags;
	u16 length;
	u16 padding;
};

enum stage { IDLE, ASKED, TAKEN, ANSWERED };

static enum stage stage;
static u8 *question, *answer;
static size_t question_size, answer_size;
static int result;
static DEFINE_MUTEX(lock);
static DECLARE_WAIT_QUEUE_HEAD(changed);
static bool served;
static bool stuck;
module_param(stuck, bool, 0600);

static bool put(const void *data, size_t size)
{
	if (question_size + size > MOST_BYTES)
		return false;
	memcpy(question + question_size, data, size);
	question_size += size;
	return true;
}

static bool write_question(const struct i2c_msg *messages, int count)
{
	struct transfer_head head = { count, task_pid_nr(current) };
	int i;

	question_size = 0;
	if (!put(&head, sizeof(head)))
		return false;
	for (i = 0; i < count; i++) {
		struct message_head one = { messages[i].addr, messages[i].flags, messages[i].len, 0 };

		if (!put(&one, sizeof(one)))
			return false;
		if (!(messages[i].flags & I2C_M_RD) && !put(messages[i].buf, messages[i].len))
			return false;
	}
	return true;
}

static int read_answer(struct i2c_msg *messages, int count)
{
	size_t at = 0;
	int i;

	if (result < 0)
		return result;
	for (i = 0; i < count; i++) {
		if (!(messages[i].flags & I2C_M_RD))
			continue;
		if (at + messages[i].len > answer_size)
			return -EIO;
		memcpy(messages[i].buf, answer + at, messages[i].len);
		at += messages[i].len;
	}
	return result;
}

static int bus_transfer(struct i2c_adapter *adapter, struct i2c_msg *messages, int count)
{
	int status;

	if (!served)
		return -ENXIO;
	if (stuck) {
		schedule_timeout_uninterruptible(adapter->timeout);
		return -ETIMEDOUT;
	}
	mutex_lock(&lock);
	status = write_question(messages, count) ? 0 : -EINVAL;
	if (!status)
		stage = ASKED;
	mutex_unlock(&lock);
	if (status)
		return status;
	wake_up_all(&changed);
	if (!wait_event_timeout(changed, READ_ONCE(stage) == ANSWERED, adapter->timeout))
		status = -ETIMEDOUT;
	mutex_lock(&lock);
	if (stage == ANSWERED)
		status = read_answer(messages, count);
	stage = IDLE;
	mutex_unlock(&lock);
	return status;
}

static u32 bus_abilities(struct i2c_adapter *adapter)
{
	return I2C_FUNC_I2C | I2C_FUNC_SMBUS_EMUL;
}

static const struct i2c_algorithm algorithm = {
	.master_xfer = bus_transfer,
	.functionality = bus_abilities,
};

static struct i2c_adapter adapter = {
	.owner = THIS_MODULE,
	.algo = &algorithm,
	.nr = BUS_NUMBER,
	.name = "vboard",
	.timeout = HZ,
};

static int chips_open(struct inode *inode, struct file *file)
{
	if (served)
		return -EBUSY;
	served = true;
	return 0;
}

static int chips_release(struct inode *inode, struct file *file)
{
	served = false;
	return 0;
}

static ssize_t chips_read(struct file *file, char __user *to, size_t size, loff_t *at)
{
	ssize_t status;

	if (wait_event_interruptible(changed, READ_ONCE(stage) == ASKED))
		return -EINTR;
	mutex_lock(&lock);
	status = size < question_size ? -EINVAL : (ssize_t)question_size;
	if (status > 0 && copy_to_user(to, question, question_size))
		status = -EFAULT;
	if (status > 0 && stage == ASKED)
		stage = TAKEN;
	mutex_unlock(&lock);
	return status;
}

static ssize_t chips_write(struct file *file, const char __user *from, size_t size, loff_t *at)
{
	ssize_t status = size;

	if (size < sizeof(result) || size > MOST_BYTES)
		return -EINVAL;
	mutex_lock(&lock);
	if (stage != TAKEN) {
		status = -ESTALE; // the bus has given up waiting
	} else if (copy_from_user(&result, from, sizeof(result)) ||
		   copy_from_user(answer, from + sizeof(result), size - sizeof(result))) {
		status = -EFAULT;
	} else {
		answer_size = size - sizeof(result);
		stage = ANSWERED;
	}
	mutex_unlock(&lock);
	wake_up_all(&changed);
	return status;
}

static const struct file_operations chips_calls = {
	.owner = THIS_MODULE,
	.open = chips_open,
	.release = chips_release,
	.read = chips_read,
	.write = chips_write,
};

static struct miscdevice chips = {
	.minor = MISC_DYNAMIC_MINOR,
	.name = "vboard-i2c",
	.fops = &chips_calls,
};

static struct hrtimer mains;

static enum hrtimer_restart cut(struct hrtimer *timer)
{
	emergency_restart();
	return HRTIMER_NORESTART;
}

static int set_cut(const char *text, const struct kernel_param *parameter)
{
	u64 after_ns;
	int status = kstrtou64(text, 0, &after_ns);

	if (!status)
		hrtimer_start(&mains, ns_to_ktime(after_ns), HRTIMER_MODE_REL_HARD);
	return status;
}

static const struct kernel_param_ops cut_calls = { .set = set_cut };
module_param_cb(cut_ns, &cut_calls, NULL, 0200);

static int __init bus_init(void)
{
	int status;

	hrtimer_init(&mains, CLOCK_MONOTONIC, HRTIMER_MODE_REL_HARD);
	mains.function = cut;
	question = kmalloc(MOST_BYTES, GFP_KERNEL);
	answer = kmalloc(MOST_BYTES, GFP_KERNEL);
	status = question && answer ? misc_register(&chips) : -ENOMEM;
	if (!status) {
		status = i2c_add_numbered_adapter(&adapter);
		if (!status)
			return 0;
		misc_deregister(&chips);
	}
	kfree(question);
	kfree(answer);
	return status;
}

static void __exit bus_exit(void)
{
	hrtimer_cancel(&mains);
	i2c_del_adapter(&adapter);
	misc_deregister(&chips);
	kfree(question);
	kfree(answer);
}

module_init(bus_init);
module_exit(bus_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("I2C bus of the virtual board, and its mains switch");
