// SPDX-License-Identifier: GPL-2.0-only
/*
 * The outputs of a touch panel for a virtual machine: eight GPIO lines from 224 on and a backlight. Each change of a
 * line or of the light is kept with the kernel's time and read from the debugfs file "varnel_board", one change a line:
 *
 *	SECONDS.MICROSECONDS LINE-NUMBER|backlight 0|1
 *
 * The times are those of CLOCK_MONOTONIC; the levels are the physical ones.
 */
#include <linux/backlight.h>
#include <linux/debugfs.h>
#include <linux/gpio/driver.h>
#include <linux/module.h>
#include <linux/platform_device.h>
#include <linux/seq_file.h>
#include <linux/spinlock.h>
#include <linux/timekeeping.h>

#define FIRST_LINE 224
#define LINE_COUNT 8
#define BACKLIGHT LINE_COUNT
#define OUTPUT_COUNT (LINE_COUNT + 1)
#define RECORD_SIZE 32768

struct change {
	u64 time;
	u8 output;
	u8 level;
};

static struct change record[RECORD_SIZE];
static unsigned long changes;
static bool driven[OUTPUT_COUNT];
static u8 levels[OUTPUT_COUNT];
static DEFINE_SPINLOCK(lock);

static struct platform_device *device;
static struct dentry *record_file;

static void set_output(unsigned int output, int level)
{
	unsigned long flags;

	spin_lock_irqsave(&lock, flags);
	if (!driven[output] || levels[output] != !!level) {
		record[changes++ % RECORD_SIZE] = (struct change){ ktime_get_ns(), output, !!level };
		levels[output] = !!level;
		driven[output] = true;
	}
	spin_unlock_irqrestore(&lock, flags);
}

static int line_direction(struct gpio_chip *chip, unsigned int line)
{
	return driven[line] ? GPIO_LINE_DIRECTION_OUT : GPIO_LINE_DIRECTION_IN;
}

static int line_input(struct gpio_chip *chip, unsigned int line)
{
	driven[line] = false;
	return 0;
}

static int line_output(struct gpio_chip *chip, unsigned int line, int level)
{
	set_output(line, level);
	return 0;
}

static int line_get(struct gpio_chip *chip, unsigned int line)
{
	return levels[line];
}

static void line_set(struct gpio_chip *chip, unsigned int line, int level)
{
	set_output(line, level);
}

static struct gpio_chip lines = {
	.label = "varnel-board",
	.owner = THIS_MODULE,
	.base = FIRST_LINE,
	.ngpio = LINE_COUNT,
	.get_direction = line_direction,
	.direction_input = line_input,
	.direction_output = line_output,
	.get = line_get,
	.set = line_set,
};

static int update_light(struct backlight_device *light)
{
	set_output(BACKLIGHT, !backlight_is_blank(light));
	return 0;
}

static const struct backlight_ops light_ops = {
	.update_status = update_light,
};

static const struct backlight_properties light_properties = {
	.type = BACKLIGHT_RAW,
	.max_brightness = 1,
	.brightness = 1,
	.power = FB_BLANK_UNBLANK,
};

static int record_show(struct seq_file *file, void *unused)
{
	unsigned long first = changes > RECORD_SIZE ? changes - RECORD_SIZE : 0;
	unsigned long index;

	for (index = first; index < changes; index++) {
		struct change *change = &record[index % RECORD_SIZE];
		u64 seconds = change->time;
		u32 nanoseconds = do_div(seconds, 1000000000);

		seq_printf(file, "%llu.%06u ", seconds, nanoseconds / 1000);
		if (change->output == BACKLIGHT)
			seq_puts(file, "backlight");
		else
			seq_printf(file, "%d", FIRST_LINE + change->output);
		seq_printf(file, " %d\n", change->level);
	}
	return 0;
}
DEFINE_SHOW_ATTRIBUTE(record);

static int __init board_start(void)
{
	struct backlight_device *light;
	int status;

	device = platform_device_register_simple("pwm-backlight", 0, NULL, 0);
	if (IS_ERR(device))
		return PTR_ERR(device);
	light = devm_backlight_device_register(&device->dev, "pwm-backlight.0", &device->dev, NULL, &light_ops,
					       &light_properties);
	if (IS_ERR(light)) {
		status = PTR_ERR(light);
		goto no_light;
	}
	update_light(light);
	lines.parent = &device->dev;
	status = gpiochip_add_data(&lines, NULL);
	if (status)
		goto no_light;
	record_file = debugfs_create_file("varnel_board", 0400, NULL, NULL, &record_fops);
	return 0;

no_light:
	platform_device_unregister(device);
	return status;
}

static void __exit board_end(void)
{
	debugfs_remove(record_file);
	gpiochip_remove(&lines);
	platform_device_unregister(device);
}

module_init(board_start);
module_exit(board_end);

MODULE_DESCRIPTION("Outputs of a touch panel for a virtual machine");
MODULE_LICENSE("GPL");
